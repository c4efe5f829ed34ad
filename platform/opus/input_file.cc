#include "platform/opus/input_file.h"

#include <fcntl.h>

#include <algorithm>
#include <cerrno>

#include "platform/opus/conversion_failure.h"

namespace kwtsdk::internal {

InputFile::InputFile(const std::string& path)
    // A pipe would otherwise block until somebody writes to it.
    : path_(path), descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {
  if (descriptor_.get() < 0 || ::fstat(descriptor_.get(), &status_) != 0) {
    throw ConversionFailure(path + " cannot be opened (" + systemReason() +
                            "): check its name and its permissions.");
  }
  if (S_ISDIR(status_.st_mode)) throw ConversionFailure(path + " is a folder: name a recording in it.");
  if (!S_ISREG(status_.st_mode)) throw ConversionFailure(path + " is not a regular file: name a recording.");
}

double InputFile::fraction() const {
  return size() == 0 ? 1 : std::min(1.0, static_cast<double>(consumed_) / static_cast<double>(size()));
}

bool InputFile::isSameFileAs(const struct stat& other) const {
  return status_.st_dev == other.st_dev && status_.st_ino == other.st_ino;
}

std::size_t InputFile::read(std::span<std::uint8_t> buffer) {
  const std::size_t count = readAt(buffer, consumed_);
  consumed_ += count;
  return count;
}

std::size_t InputFile::peek(std::span<std::uint8_t> buffer) const { return readAt(buffer, 0); }

std::size_t InputFile::readAt(std::span<std::uint8_t> buffer, std::uint64_t offset) const {
  std::size_t filled = 0;
  while (filled < buffer.size()) {
    const ssize_t count = ::pread(descriptor_.get(), buffer.data() + filled, buffer.size() - filled,
                                  static_cast<off_t>(offset + filled));
    if (count == 0) break;
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw ConversionFailure(path_ + " cannot be read (" + systemReason() +
                              "): copy it to another disk, or download it again.");
    }
  }
  return filled;
}

}  // namespace kwtsdk::internal
