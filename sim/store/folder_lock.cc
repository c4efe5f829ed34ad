#include "sim/store/folder_lock.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

namespace kwtsdk::sim {
namespace {

/// Linux tells it; elsewhere nobody does.
std::string holderOf(int descriptor) {
  struct stat folder {};
  ::fstat(descriptor, &folder);
  const std::string inodeEnd = std::string(":").append(std::to_string(folder.st_ino));
  std::ifstream locks("/proc/locks");
  for (std::string line; std::getline(locks, line);) {
    // "7: FLOCK  ADVISORY  WRITE 4711 fe:00:1234 0 EOF"
    std::istringstream words(line);
    std::string number, kind, advisory, access, process, inode;
    words >> number >> kind >> advisory >> access >> process >> inode;
    if (kind != "FLOCK" || !inode.ends_with(inodeEnd)) continue;
    std::string name;
    std::ifstream comm("/proc/" + process + "/comm");
    std::getline(comm, name);
    return (name.empty() ? "process " : name.append(", process ")).append(process);
  }
  return "another program";
}

}  // namespace

FolderLock::FolderLock(const std::filesystem::path& folder)
    : descriptor_(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
  // Some network file systems have no such locks: then there is none.
  if (descriptor_ < 0 || ::flock(descriptor_, LOCK_EX | LOCK_NB) == 0 || errno != EWOULDBLOCK) return;
  const std::string holder = holderOf(descriptor_);
  ::close(descriptor_);
  throw std::runtime_error("the recorder's folder " + folder.string() + " is in use by " + holder +
                           ": wait until it has ended, or name another folder");
}

FolderLock::~FolderLock() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

}  // namespace kwtsdk::sim
