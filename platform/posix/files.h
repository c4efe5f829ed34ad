#pragma once

#include <unistd.h>

#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/bytes.h>
#include <kwtsdk/files.h>

namespace kwtsdk::internal {

/// Owns a file descriptor; negative: none.
class Descriptor {
 public:
  explicit Descriptor(int value = -1) : value_(value) {}
  Descriptor(Descriptor&& other) noexcept : value_(other.release()) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(value_, other.value_);
    return *this;
  }
  ~Descriptor() {
    if (value_ >= 0) ::close(value_);
  }

  int get() const { return value_; }
  int release() { return std::exchange(value_, -1); }

 private:
  int value_;
};

/// False when the disk has not taken what was written; where there is none, there is nothing to wait for.
bool syncDescriptor(int descriptor);

/// Of a path; "." for a bare name.
std::string folderOf(const std::string& path);

/// The whole file; none when it cannot be read or is a directory. An empty file is an empty buffer.
std::optional<Bytes> dataOfFile(const std::string& path);

}  // namespace kwtsdk::internal
