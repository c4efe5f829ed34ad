#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <span>
#include <string>
#include <vector>

#include "platform/opus/byte_sink.h"
#include "platform/opus/input_file.h"
#include "platform/posix/files.h"

namespace kwtsdk::internal {

/// The file that a conversion makes: written under another name in the same folder and renamed when it is
/// complete. Everything throws ConversionFailure; what is not published leaves nothing behind, and what a
/// killed process left in the folder goes.
class ConvertedFile : public ByteSink {
 public:
  /// The path must not be the input's, nor anything that is no regular file.
  ConvertedFile(const std::string& path, const InputFile& input);
  ~ConvertedFile() override;
  ConvertedFile(const ConvertedFile&) = delete;
  ConvertedFile& operator=(const ConvertedFile&) = delete;

  const std::string& path() const override { return path_; }
  void append(std::span<const std::uint8_t> bytes) override;
  void overwriteBeginning(std::span<const std::uint8_t> bytes) override;
  /// As of when it was made.
  void setTime(const timespec& modified);
  void publish();

 private:
  void createTemporary();
  void flush();
  void write(std::span<const std::uint8_t> bytes, std::uint64_t offset);

  const std::string path_;
  std::filesystem::path target_;  // behind the path's symbolic links
  std::filesystem::path temporary_;
  Descriptor descriptor_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t written_ = 0;
};

}  // namespace kwtsdk::internal
