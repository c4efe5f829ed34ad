#include "sim/store/device_folder.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <system_error>

#include "sim/model/firmware_wire.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace fs = std::filesystem;

namespace {

constexpr const char *kFirstId = "first-id", *kFirmware = "firmware.bin";

bool writeDurably(const fs::path& path, const Bytes& content) {
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

bool DeviceFolder::replace(const std::string& name, const Bytes& content) const {
  const fs::path path = path_ / name, temporary = path_ / (name + ".new");
  std::error_code failure;
  fs::create_directory(path_, failure);
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
  syncFolder(path_);
  return true;
}

std::uint32_t DeviceFolder::readFirstId() const {
  const fs::path path = path_ / kFirstId;
  if (!fs::exists(path)) return 1;
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();

  std::string text = content.str();
  if (text.ends_with('\n')) text.pop_back();
  std::uint32_t id = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (failure != std::errc{} || end != text.data() + text.size() || id == 0 || id > wire::kGreatestFirstId) {
    throw std::runtime_error(path.string() + " holds no recording id: write a number from 1 to " +
                             std::to_string(wire::kGreatestFirstId) +
                             " into it, or remove it to start from 1");
  }
  return id;
}

bool DeviceFolder::writeFirstId(std::uint32_t id) const {
  const std::string text = std::to_string(id) + "\n";
  return replace(kFirstId, Bytes(text.begin(), text.end()));
}

std::optional<Bytes> DeviceFolder::readFirmware() const {
  const fs::path path = path_ / kFirmware;
  if (!fs::exists(path)) return std::nullopt;
  std::error_code failure;
  const std::uintmax_t size = fs::is_regular_file(path) ? fs::file_size(path, failure) : 0;
  std::ifstream file(path, std::ios::binary);
  Bytes image(!failure && wire::isImageSize(size) ? static_cast<std::size_t>(size) : 0);
  file.read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(image.size()));
  if (image.empty() || !file) {
    throw std::runtime_error(path.string() +
                             " holds no firmware image: put one of 4 to 67108864 bytes there that you may "
                             "read, or remove the file");
  }
  return image;
}

bool DeviceFolder::writeFirmware(const Bytes& image) const { return replace(kFirmware, image); }

}  // namespace kwtsdk::sim
