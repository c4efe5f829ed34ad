#include "session/disk_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>

namespace kwtsdk::session::detail {
namespace {

std::string reasonOf(int error) {
  if (error == EISDIR) return "it is a folder";
  if (error == ELOOP || error == ENXIO) return "it is not a regular file";  // a link, a pipe or socket
  return std::strerror(error);
}

}  // namespace

Failure fileFailure(const char* doing, const std::filesystem::path& file, const std::string& reason) {
  return {Errc::fileUnusable, std::string("Cannot ") + doing + " " + file.string() + ": " + reason + "."};
}

Failure fileFailure(const char* doing, const std::filesystem::path& file, int error) {
  return fileFailure(doing, file, reasonOf(error));
}

Result<DiskFile> DiskFile::open(int folder, const std::string& name, int flags,
                                const std::filesystem::path& shown) {
  constexpr int always = O_NONBLOCK | O_CLOEXEC | O_NOCTTY;
  constexpr mode_t mode = 0666;
  const int opened = uninterrupted([&] { return ::openat(folder, name.c_str(), flags | always, mode); });
  if (opened < 0) return fileFailure("open", shown, errno);
  DiskFile file(internal::Descriptor(opened), shown);
  struct stat status {};
  if (::fstat(opened, &status) != 0) return fileFailure("open", shown, errno);
  if (S_ISDIR(status.st_mode)) return fileFailure("open", shown, EISDIR);
  if (!S_ISREG(status.st_mode)) return fileFailure("open", shown, ENXIO);
  return file;
}

Result<bool> DiskFile::lock() {
  if (uninterrupted([&] { return ::flock(descriptor(), LOCK_EX | LOCK_NB); }) == 0) return true;
  if (errno == EWOULDBLOCK) return false;
  return fileFailure("lock", shown_, errno);
}

Result<std::uint64_t> DiskFile::size() const {
  struct stat status {};
  if (::fstat(descriptor(), &status) != 0) return fileFailure("read", shown_, errno);
  return static_cast<std::uint64_t>(status.st_size);
}

std::optional<Failure> DiskFile::read(std::uint64_t offset, std::span<std::uint8_t> into) const {
  while (!into.empty()) {
    const ssize_t got = uninterrupted(
        [&] { return ::pread(descriptor(), into.data(), into.size(), static_cast<off_t>(offset)); });
    if (got < 0) return fileFailure("read", shown_, errno);
    if (got == 0) return fileFailure("read", shown_, std::string("it has become shorter"));
    offset += static_cast<std::uint64_t>(got);
    into = into.subspan(static_cast<std::size_t>(got));
  }
  return std::nullopt;
}

std::pair<std::uint64_t, std::optional<Failure>> DiskFile::write(std::uint64_t offset,
                                                                 std::span<const std::uint8_t> bytes) {
  std::uint64_t done = 0;
  while (done < bytes.size()) {
    const auto rest = bytes.subspan(static_cast<std::size_t>(done));
    const ssize_t written = uninterrupted(
        [&] { return ::pwrite(descriptor(), rest.data(), rest.size(), static_cast<off_t>(offset + done)); });
    if (written <= 0) return {done, fileFailure("write", shown_, written < 0 ? errno : ENOSPC)};
    done += static_cast<std::uint64_t>(written);
  }
  return {done, std::nullopt};
}

std::optional<Failure> DiskFile::truncate(std::uint64_t size) {
  if (uninterrupted([&] { return ::ftruncate(descriptor(), static_cast<off_t>(size)); }) == 0) {
    return std::nullopt;
  }
  return fileFailure("write", shown_, errno);
}

std::optional<Failure> DiskFile::sync() {
  if (uninterrupted([&] { return ::fsync(descriptor()); }) == 0) return std::nullopt;
  return fileFailure("write", shown_, errno);
}

std::optional<Failure> DiskFile::close() {
  // Interrupted it is closed all the same; closing again could close another's.
  if (!isOpen() || ::close(descriptor_.release()) == 0 || errno == EINTR) return std::nullopt;
  return fileFailure("write", shown_, errno);
}

bool DiskFile::is(const struct stat& status) const {
  struct stat own {};
  return ::fstat(descriptor(), &own) == 0 && own.st_dev == status.st_dev && own.st_ino == status.st_ino;
}

}  // namespace kwtsdk::session::detail
