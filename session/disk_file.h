#pragma once

#include <sys/stat.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <span>
#include <string>
#include <utility>

#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/result.h>

#include "platform/posix/files.h"

namespace kwtsdk::session::detail {

/// A system call, made again when a signal interrupted it.
template <class Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

/// "Cannot `doing` `file`: `reason`."
Failure fileFailure(const char* doing, const std::filesystem::path& file, const std::string& reason);
Failure fileFailure(const char* doing, const std::filesystem::path& file, int error);

/// A regular file that is open. Failures are fileUnusable and name it.
class DiskFile {
 public:
  /// `flags` for open(2); never waits for a pipe's other end. `name` is in the open folder `folder`.
  static Result<DiskFile> open(int folder, const std::string& name, int flags,
                               const std::filesystem::path& shown);

  /// Against everybody who locks it; false: another has it.
  Result<bool> lock();
  Result<std::uint64_t> size() const;

  // All of the bytes, or a failure.
  std::optional<Failure> read(std::uint64_t offset, std::span<std::uint8_t> into) const;

  /// Tells how many of them it wrote also when it fails.
  std::pair<std::uint64_t, std::optional<Failure>> write(std::uint64_t offset,
                                                         std::span<const std::uint8_t> bytes);
  std::optional<Failure> truncate(std::uint64_t size);
  std::optional<Failure> sync();

  /// The failure of a file system that writes as late as this.
  std::optional<Failure> close();
  bool isOpen() const { return descriptor_.get() >= 0; }
  int descriptor() const { return descriptor_.get(); }

  /// Whether it is the file of that status, or another one that has taken its name.
  bool is(const struct stat& status) const;

 private:
  DiskFile(internal::Descriptor descriptor, std::filesystem::path shown)
      : descriptor_(std::move(descriptor)), shown_(std::move(shown)) {}

  internal::Descriptor descriptor_;
  std::filesystem::path shown_;
};

}  // namespace kwtsdk::session::detail
