#include <kwtsdk/files.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "codec/file_data.h"

namespace kwtsdk {
namespace {

constexpr std::uint64_t kBlockSize = 32768;  // the unit in which the recorder counts file sizes

std::optional<struct stat> status(const std::string& path) {
  struct stat result {};
  if (::stat(path.c_str(), &result) != 0) return std::nullopt;
  return result;
}

}  // namespace

FileHandle::~FileHandle() { close(); }

bool FileHandle::write(const void* data, std::size_t size) {
  const std::lock_guard lock(mutex_);
  const char* at = static_cast<const char*>(data);
  if (failure_.empty() && descriptor_ < 0) failure_ = "the file is closed";
  while (failure_.empty() && size > 0) {
    const ssize_t written = ::write(descriptor_, at, size);
    if (written < 0) {
      if (errno != EINTR) failure_ = std::strerror(errno);
      continue;
    }
    at += written;
    size -= static_cast<std::size_t>(written);
  }
  return failure_.empty();
}

void FileHandle::close() {
  const std::lock_guard lock(mutex_);
  if (descriptor_ >= 0) ::close(descriptor_);
  descriptor_ = -1;
}

bool FileHandle::isOpen() const {
  const std::lock_guard lock(mutex_);
  return descriptor_ >= 0;
}

std::string FileHandle::failure() const {
  const std::lock_guard lock(mutex_);
  return failure_;
}

std::int64_t fileSize(const std::string& path) {
  const auto found = status(path);
  return found ? static_cast<std::int64_t>(found->st_size) : 0;
}

bool fileIsExist(const std::string& path) {
  const auto found = status(path);
  return found && !S_ISDIR(found->st_mode);
}

std::shared_ptr<FileHandle> getFileHandle(const std::string& path, bool append) {
  // O_NONBLOCK: opening a pipe that nobody reads would otherwise block for ever.
  const int descriptor = ::open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, 0666);
  if (descriptor < 0) return nullptr;
  ::fcntl(descriptor, F_SETFL, 0);
  if (append) ::lseek(descriptor, 0, SEEK_END);
  return std::make_shared<FileHandle>(descriptor);
}

std::shared_ptr<FileHandle> getFileHandleForAppend(const std::string& path) {
  return getFileHandle(path, true);
}

std::shared_ptr<FileHandle> getFileHandleForWrite(const std::string& path) {
  return getFileHandle(path, false);
}

void closeFileHandle(const std::shared_ptr<FileHandle>& handle) {
  if (handle) handle->close();
}

std::uint64_t filesizeFromBlockNum(std::uint32_t blocks) { return blocks * kBlockSize; }

namespace internal {

std::optional<Bytes> dataOfFile(const std::string& path) {
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
  if (descriptor < 0) return std::nullopt;
  Bytes data;
  std::array<std::uint8_t, 65536> chunk{};
  ssize_t got = 0;
  do {
    got = ::read(descriptor, chunk.data(), chunk.size());
    if (got > 0) data.insert(data.end(), chunk.begin(), chunk.begin() + got);
  } while (got > 0 || (got < 0 && errno == EINTR));
  ::close(descriptor);
  if (got < 0) return std::nullopt;  // a directory opens, but does not read
  return data;
}

}  // namespace internal
}  // namespace kwtsdk
