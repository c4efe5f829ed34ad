#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "platform/opus/byte_sink.h"

namespace kwtsdk::internal {

/// An open file or pipe that is written while others read it: what was appended appears with flush().
class GrowingFile : public ByteSink {
 public:
  /// The descriptor stays the caller's.
  GrowingFile(int descriptor, std::string path) : descriptor_(descriptor), path_(std::move(path)) {}

  const std::string& path() const override { return path_; }
  void append(std::span<const std::uint8_t> bytes) override;
  void overwriteBeginning(std::span<const std::uint8_t> bytes) override;

  /// Waits for a slow reader.
  void flush();
  std::uint64_t written() const { return written_; }

 private:
  const int descriptor_;
  const std::string path_;
  std::vector<std::uint8_t> buffer_;
  std::uint64_t written_ = 0;
};

}  // namespace kwtsdk::internal
