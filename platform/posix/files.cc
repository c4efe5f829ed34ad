#include "platform/posix/files.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/threads/mutex.h"

namespace kwtsdk {
namespace {

std::optional<struct stat> status(const std::string& path) {
  struct stat result {};
  if (::stat(path.c_str(), &result) != 0) return std::nullopt;
  return result;
}

/// Keeps the SIGPIPE of a write from the host, which may not know that it writes into a pipe.
class WithoutSigpipe {
 public:
  WithoutSigpipe() {
    ::sigemptyset(&signal_);
    ::sigaddset(&signal_, SIGPIPE);
    sigset_t pending;
    ::sigpending(&pending);
    isOthers_ = ::sigismember(&pending, SIGPIPE) == 1;
    ::pthread_sigmask(SIG_BLOCK, &signal_, &before_);
  }
  ~WithoutSigpipe() {
    const struct timespec now {};
    if (!isOthers_) ::sigtimedwait(&signal_, nullptr, &now);
    ::pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }
  WithoutSigpipe(const WithoutSigpipe&) = delete;
  WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

 private:
  sigset_t signal_{}, before_{};
  bool isOthers_ = false;
};

bool isRegularFile(int descriptor) {
  struct stat status {};
  return ::fstat(descriptor, &status) == 0 && S_ISREG(status.st_mode);
}

}  // namespace

struct FileHandle::State {
  State(int opened, std::string name)
      : path(std::move(name)), isPipe(!isRegularFile(opened)), closed(opened < 0), descriptor(opened) {}

  bool write(const char* data, std::size_t size) KWT_EXCLUDES(writing);
  bool sync() KWT_EXCLUDES(writing);
  std::string writeAll(const char* at, std::size_t size) KWT_REQUIRES(writing);
  std::string syncAll() KWT_REQUIRES(writing);
  void releaseIfClosed() KWT_EXCLUDES(writing);

  const std::string path;
  const bool isPipe;  // or something like it
  std::atomic<bool> closed;
  internal::Mutex writing;
  internal::Descriptor descriptor KWT_GUARDED_BY(writing);
  internal::SharedField<std::string> failure;
};

bool FileHandle::State::write(const char* data, std::size_t size) {
  const internal::MutexLock lock(writing);
  if (!failure.get().empty()) return false;
  const std::string problem = writeAll(data, size);
  if (!problem.empty()) failure.set(problem);
  return problem.empty();
}

bool FileHandle::State::sync() {
  const internal::MutexLock lock(writing);
  if (!failure.get().empty()) return false;
  const std::string problem = syncAll();
  if (!problem.empty()) failure.set(problem);
  return problem.empty();
}

std::string FileHandle::State::syncAll() {
  if (closed) return "the file is closed";
  if (!internal::syncDescriptor(descriptor.get())) return std::strerror(errno);
  if (path.empty()) return "";
  const internal::Descriptor folder(
      ::open(internal::folderOf(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  // One that may not be read cannot be synced either: the file's own is all there is then.
  return folder.get() < 0 || internal::syncDescriptor(folder.get()) ? "" : std::strerror(errno);
}

std::string FileHandle::State::writeAll(const char* at, std::size_t size) {
  std::optional<WithoutSigpipe> quiet;
  if (isPipe) quiet.emplace();
  while (size > 0) {
    if (closed) return "the file is closed";
    const ssize_t written = ::write(descriptor.get(), at, size);
    if (written < 0) {
      if (errno != EINTR) return std::strerror(errno);
      continue;
    }
    at += written;
    size -= static_cast<std::size_t>(written);
  }
  return "";
}

// Whoever has the lock while another closes comes here after it.
void FileHandle::State::releaseIfClosed() {
  if (!closed || !writing.try_lock()) return;
  descriptor = internal::Descriptor();
  writing.unlock();
}

FileHandle::FileHandle(int descriptor, std::string path)
    : state_(std::make_unique<State>(descriptor, std::move(path))) {}
FileHandle::~FileHandle() { close(); }

bool FileHandle::write(const void* data, std::size_t size) {
  const bool written = state_->write(static_cast<const char*>(data), size);
  state_->releaseIfClosed();
  return written;
}

bool FileHandle::sync() {
  const bool synced = state_->sync();
  state_->releaseIfClosed();
  return synced;
}

void FileHandle::close() {
  state_->closed = true;
  state_->releaseIfClosed();
}

bool FileHandle::isOpen() const { return !state_->closed; }
std::string FileHandle::failure() const { return state_->failure.get(); }

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
  return std::make_shared<FileHandle>(descriptor, path);
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

namespace internal {

bool syncDescriptor(int descriptor) {
  int result = 0;
  do {
    result = ::fsync(descriptor);
  } while (result != 0 && errno == EINTR);
  return result == 0 || errno == EINVAL || errno == EROFS || errno == ENOTSUP;  // no disk is behind it
}

std::string folderOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? "." : path.substr(0, slash + 1);
}

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
