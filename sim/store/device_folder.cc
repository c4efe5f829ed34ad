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

constexpr const char *kFirstId = "first-id", *kFirmware = "firmware.bin",
                     *kFirmwarePart = "firmware.bin.part";

bool writeDurably(const fs::path& path, const Bytes& content) {
  ::unlink(path.c_str());  // of a program that was killed: this one has the folder
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0666);
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

std::optional<std::string> textOf(const fs::path& path) {
  constexpr std::uintmax_t longest = 1 << 20;
  std::error_code failure;
  const auto type = fs::status(path, failure).type();
  if (type == fs::file_type::not_found) return std::nullopt;
  const bool isText = type == fs::file_type::regular && fs::file_size(path, failure) <= longest;
  std::ostringstream content;
  std::ifstream file;
  if (isText) file.open(path);
  if (isText && !failure && fs::file_size(path, failure) > 0) content << file.rdbuf();
  if (!isText || !file || !content) {
    throw std::runtime_error(path.string() +
                             " cannot be read: check that it is a text file, and its permissions, "
                             "or remove it");
  }
  return content.str();
}

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
  const auto content = textOf(path);
  if (!content) return 1;
  std::string text = *content;
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
  std::ifstream file;
  if (fs::is_regular_file(path)) file.open(path, std::ios::binary);
  Bytes image(!failure && wire::isImageSize(size) ? static_cast<std::size_t>(size) : 0);
  file.read(reinterpret_cast<char*>(image.data()), static_cast<std::streamsize>(image.size()));
  if (image.empty() || !file) {
    throw std::runtime_error(path.string() +
                             " holds no firmware image: put one of 4 to 67108864 bytes there that you may "
                             "read, or remove the file");
  }
  return image;
}

bool DeviceFolder::writeFirmware(const Bytes& image) const {
  const bool isWritten = replace(kFirmware, image);
  std::error_code ignored;
  if (isWritten) fs::remove(path_ / kFirmwarePart, ignored);
  return isWritten;
}

bool DeviceFolder::stageFirmware(std::size_t offset, std::span<const std::uint8_t> segment) const {
  const fs::path path = path_ / kFirmwarePart;
  std::error_code ignored;
  fs::create_directory(path_, ignored);
  if (offset == 0) ::unlink(path.c_str());
  const int flags = O_WRONLY | O_CLOEXEC | O_NOFOLLOW | (offset == 0 ? O_CREAT | O_EXCL : 0);
  const int file = ::open(path.c_str(), flags, 0666);
  if (file < 0) return false;
  const bool isWritten = ::pwrite(file, segment.data(), segment.size(), static_cast<off_t>(offset)) ==
                         static_cast<ssize_t>(segment.size());
  return ::close(file) == 0 && isWritten;
}

}  // namespace kwtsdk::sim
