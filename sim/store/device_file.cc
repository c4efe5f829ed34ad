#include "sim/store/device_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <string>
#include <system_error>

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

bool writeDurably(const fs::path& path, std::span<const std::uint8_t> content) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return false;
  const bool written = ::write(file, content.data(), content.size()) == static_cast<ssize_t>(content.size());
  const bool synced = written && ::fsync(file) == 0;
  return ::close(file) == 0 && synced;
}

void syncFolder(const fs::path& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  ::fsync(folder);
  ::close(folder);
}

}  // namespace

fs::path deviceFile(const fs::path& folder, const char* name) { return folder / "device" / name; }

bool replaceDeviceFile(const fs::path& folder, const char* name, std::span<const std::uint8_t> content) {
  const fs::path path = deviceFile(folder, name), device = path.parent_path(),
                 temporary = device / (std::string(name) + ".new");
  std::error_code failure;
  fs::create_directory(device, failure);
  if (failure) return false;

  bool replaced = writeDurably(temporary, content);
  if (replaced) {
    fs::rename(temporary, path, failure);
    replaced = !failure;
  }
  if (!replaced) {
    fs::remove(temporary, failure);
    return false;
  }
  syncFolder(device);
  return true;
}

}  // namespace kwtsdk::sim
