#include "platform/opus/converted_file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <string_view>

namespace kwtsdk::internal {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kBufferSize = 131072;

fs::path targetOf(const std::string& path, const InputFile& input) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    std::error_code ignored;
    if (fs::is_symlink(path, ignored)) {
      throw ConversionFailure(path + " is a symbolic link to nothing: remove it, or name another file.");
    }
    return path;
  }
  if (input.isSameFileAs(status)) {
    throw ConversionFailure(path + " is the recording itself: name another file for the output.");
  }
  if (!S_ISREG(status.st_mode)) {
    throw ConversionFailure(path + " is not a regular file: name another file for the output.");
  }
  std::error_code failure;
  fs::path target = fs::canonical(path, failure);
  if (failure) throw unwritable(path, failure.message());
  return target;
}

constexpr char kTemporaryName[] = ".kwtsdk-";

/// What a conversion writes it holds locked, and the system ends that with the process, whatever becomes of
/// its number. One that has just been made is not locked yet, and some file systems know no locks: hence also
/// the number, and a day's time for one that another process has by now.
bool isLeft(int descriptor, pid_t maker) {
  constexpr std::time_t day = 24 * 3600;
  struct stat status {};
  if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) || status.st_uid != ::geteuid())
    return false;
  const bool isGone = ::kill(maker, 0) != 0 && errno == ESRCH;
  return (isGone || status.st_mtime < std::time(nullptr) - day) &&
         ::flock(descriptor, LOCK_EX | LOCK_NB) == 0;
}

/// Removes what conversions into this folder left that were killed.
void removeLeft(const fs::path& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(folder.empty() ? "." : folder.c_str()),
                                                    ::closedir);
  if (!entries) return;
  const int directory = ::dirfd(entries.get());
  while (const dirent* const entry = ::readdir(entries.get())) {
    const std::string_view name = static_cast<const char*>(entry->d_name);
    if (!name.starts_with(kTemporaryName)) continue;
    const auto maker = static_cast<pid_t>(std::strtol(name.data() + sizeof kTemporaryName - 1, nullptr, 10));
    if (maker <= 0 || maker == ::getpid()) continue;
    const Descriptor left(::openat(directory, name.data(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    if (left.get() >= 0 && isLeft(left.get(), maker)) ::unlinkat(directory, name.data(), 0);
  }
}

}  // namespace

ConvertedFile::ConvertedFile(const std::string& path, const InputFile& input)
    : path_(path), target_(targetOf(path, input)) {
  buffer_.reserve(kBufferSize);
  removeLeft(target_.parent_path());
  createTemporary();
}

ConvertedFile::~ConvertedFile() {
  if (!temporary_.empty()) ::unlink(temporary_.c_str());
}

void ConvertedFile::createTemporary() {
  // A crashed program with this process number may have left some.
  constexpr int attempts = 10000;
  for (int attempt = 0; attempt < attempts; ++attempt) {
    const std::string name = kTemporaryName + std::to_string(::getpid()) + "-" + std::to_string(attempt);
    // Named before there is a file, which would be left when memory runs out.
    temporary_ = target_.parent_path() / name;
    descriptor_ = Descriptor(::open(temporary_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
    if (descriptor_.get() >= 0) {
      ::flock(descriptor_.get(), LOCK_EX | LOCK_NB);
      return;
    }
    if (errno != EEXIST) break;
  }
  throw unwritable(path_, systemReason());
}

void ConvertedFile::append(std::span<const std::uint8_t> bytes) {
  if (buffer_.size() + bytes.size() > kBufferSize) flush();
  if (bytes.size() > kBufferSize) {
    write(bytes, written_);
    written_ += bytes.size();
  } else {
    buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
  }
}

void ConvertedFile::overwriteBeginning(std::span<const std::uint8_t> bytes) {
  flush();
  write(bytes, 0);
}

void ConvertedFile::setTime(const timespec& modified) {
  flush();
  const timespec times[2] = {{0, UTIME_OMIT}, modified};
  ::futimens(descriptor_.get(), times);  // a file system without times is no reason to fail
}

void ConvertedFile::publish() {
  flush();
  // A network file system may report here that an earlier write has failed.
  if (::close(descriptor_.release()) != 0) throw unwritable(path_, systemReason());
  if (std::rename(temporary_.c_str(), target_.c_str()) != 0) throw unwritable(path_, systemReason());
  temporary_.clear();
}

void ConvertedFile::flush() {
  write(buffer_, written_);
  written_ += buffer_.size();
  buffer_.clear();
}

void ConvertedFile::write(std::span<const std::uint8_t> bytes, std::uint64_t offset) {
  while (!bytes.empty()) {
    const ssize_t count = ::pwrite(descriptor_.get(), bytes.data(), bytes.size(), static_cast<off_t>(offset));
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw unwritable(path_, systemReason());
    bytes = bytes.subspan(static_cast<std::size_t>(count));
    offset += static_cast<std::uint64_t>(count);
  }
}

}  // namespace kwtsdk::internal
