#include "session/folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace kwtsdk::session::detail {

namespace fs = std::filesystem;

namespace {

int renameWithoutReplacing(int folder, const char* from, const char* to) {
#ifdef RENAME_NOREPLACE
  if (::renameat2(folder, from, folder, to, RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return -1;  // otherwise the file system knows no such renaming
#endif
  if (::linkat(folder, from, folder, to, 0) != 0) return -1;
  return ::unlinkat(folder, from, 0);
}

}  // namespace

Result<Folder> Folder::of(const fs::path& file) {
  const fs::path parent = file.parent_path(), name = file.filename();
  if (name.empty() || name == "." || name == "..") return fileFailure("use", file, EISDIR);
  const char* const opened = parent.empty() ? "." : parent.c_str();
  const int descriptor = uninterrupted([&] { return ::open(opened, O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (descriptor < 0) {
    const int error = errno;
    return fileFailure("use", file, std::string("its folder cannot be opened: ") + std::strerror(error));
  }
  return Folder(internal::Descriptor(descriptor), parent);
}

Result<DiskFile> Folder::open(const std::string& name, int flags) const {
  return DiskFile::open(descriptor_.get(), name, flags | O_NOFOLLOW, shown(name));
}

std::optional<struct stat> Folder::status(const std::string& name) const {
  struct stat found {};
  if (::fstatat(descriptor_.get(), name.c_str(), &found, AT_SYMLINK_NOFOLLOW) != 0) return std::nullopt;
  return found;
}

std::optional<Failure> Folder::replace(const std::string& name, const std::string& by) const {
  if (::renameat(descriptor_.get(), by.c_str(), descriptor_.get(), name.c_str()) != 0) {
    return fileFailure("save", shown(name), errno);
  }
  return sync();
}

std::optional<Failure> Folder::rename(const std::string& from, const std::string& to) const {
  if (renameWithoutReplacing(descriptor_.get(), from.c_str(), to.c_str()) == 0) return std::nullopt;
  return errno == EEXIST ? fileFailure("save", shown(to), std::string("it exists already"))
                         : fileFailure("save", shown(to), errno);
}

void Folder::remove(const std::string& name) const { ::unlinkat(descriptor_.get(), name.c_str(), 0); }

std::optional<Failure> Folder::sync() const {
  const int result = uninterrupted([&] { return ::fsync(descriptor_.get()); });
  // Some file systems bring names to the disk by themselves and know no such call for folders.
  if (result == 0 || errno == EINVAL || errno == ENOTSUP) return std::nullopt;
  return fileFailure("write", path_.empty() ? "." : path_, errno);
}

}  // namespace kwtsdk::session::detail
