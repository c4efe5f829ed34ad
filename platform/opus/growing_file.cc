#include "platform/opus/growing_file.h"

#include <unistd.h>

#include <cerrno>

#include "platform/opus/input_file.h"

namespace kwtsdk::internal {

namespace {

/// `write` writes the beginning of what it gets, and tells how much of it.
template <class Write>
void writeAll(const std::string& path, std::span<const std::uint8_t> bytes, Write write) {
  while (!bytes.empty()) {
    const ssize_t count = write(bytes);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw unwritable(path, systemReason());
    bytes = bytes.subspan(static_cast<std::size_t>(count));
  }
}

}  // namespace

void GrowingFile::append(std::span<const std::uint8_t> bytes) {
  buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
}

void GrowingFile::overwriteBeginning(std::span<const std::uint8_t> bytes) {
  flush();
  off_t offset = 0;
  writeAll(path_, bytes, [&](auto rest) {
    const ssize_t count = ::pwrite(descriptor_, rest.data(), rest.size(), offset);
    offset += count;
    return count;
  });
}

void GrowingFile::flush() {
  writeAll(path_, buffer_, [&](auto rest) {
    const ssize_t count = ::write(descriptor_, rest.data(), rest.size());
    if (count > 0) written_ += static_cast<std::uint64_t>(count);
    return count;
  });
  buffer_.clear();
}

}  // namespace kwtsdk::internal
