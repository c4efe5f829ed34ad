#include <kwtsdk/files.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <optional>

#include "codec/descriptor.h"
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
  bool written = failure().empty();
  if (written) {
    const std::lock_guard lock(writing_);
    const std::string failure = writeAll(static_cast<const char*>(data), size);
    written = failure.empty();
    const std::lock_guard failureLock(failureMutex_);
    if (failure_.empty()) failure_ = failure;
  }
  releaseIfClosed();
  return written;
}

std::string FileHandle::writeAll(const char* at, std::size_t size) {
  while (size > 0) {
    if (closed_) return "the file is closed";
    const ssize_t written = ::write(descriptor_, at, size);
    if (written < 0) {
      if (errno != EINTR) return std::strerror(errno);
      continue;
    }
    at += written;
    size -= static_cast<std::size_t>(written);
  }
  return "";
}

void FileHandle::close() {
  closed_ = true;
  releaseIfClosed();
}

// Whoever has the lock while another closes comes here after it.
void FileHandle::releaseIfClosed() {
  if (!closed_) return;
  const std::unique_lock lock(writing_, std::try_to_lock);
  if (!lock || descriptor_ < 0) return;
  ::close(descriptor_);
  descriptor_ = -1;
}

std::string FileHandle::failure() const {
  const std::lock_guard lock(failureMutex_);
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
  const Descriptor descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
  if (descriptor.get() < 0) return std::nullopt;
  struct stat status {};
  Bytes data;
  // At once: a buffer that grows needs up to three times the file's size.
  if (::fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode)) {
    data.reserve(static_cast<std::size_t>(status.st_size));
  }
  std::array<std::uint8_t, 65536> chunk{};
  ssize_t got = 0;
  do {
    got = ::read(descriptor.get(), chunk.data(), chunk.size());
    if (got > 0) data.insert(data.end(), chunk.begin(), chunk.begin() + got);
  } while (got > 0 || (got < 0 && errno == EINTR));
  if (got < 0) return std::nullopt;  // a directory opens, but does not read
  return data;
}

}  // namespace internal
}  // namespace kwtsdk
