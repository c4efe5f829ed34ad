#pragma once

#include <sys/stat.h>

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include <kwtsdk/opus/conversion.h>

#include "platform/posix/files.h"

namespace kwtsdk::internal {

/// Ends a conversion; the text tells a person what happened and what to do.
class ConversionFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The output at `path`, for a reason such as the system's.
ConversionFailure unwritable(const std::string& path, const std::string& reason);

/// The text itself, or words that need no memory where there is none left for it.
std::string told(std::string_view text) noexcept;

/// The system's words for errno.
std::string systemReason();

/// The recording that is read, from its beginning to its end.
class InputFile {
 public:
  /// Throws ConversionFailure when there is no regular file at the path, or it cannot be opened.
  explicit InputFile(const std::string& path);

  const std::string& path() const { return path_; }
  /// Of the file as it was opened; it may have grown meanwhile.
  std::uint64_t size() const { return static_cast<std::uint64_t>(status_.st_size); }
  std::uint64_t consumed() const { return consumed_; }
  /// Share of the file that was read, 0 to 1.
  double fraction() const;
  const timespec& modified() const { return status_.st_mtim; }
  bool isSameFileAs(const struct stat& other) const;

  /// The next bytes, as many as there are and fit; 0 at the end. Throws ConversionFailure.
  std::size_t read(std::span<std::uint8_t> buffer);
  /// The first bytes, without moving on.
  std::size_t peek(std::span<std::uint8_t> buffer) const;

 private:
  std::size_t readAt(std::span<std::uint8_t> buffer, std::uint64_t offset) const;

  std::string path_;
  Descriptor descriptor_;
  struct stat status_ {};
  std::uint64_t consumed_ = 0;
};

/// What the file is by its content. Throws ConversionFailure, which says what was found, when it is neither
/// kind of recording.
opus::Source recognise(const InputFile& file);

}  // namespace kwtsdk::internal
