#include "sim/store/first_id_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include "sim/store/block_count.h"

namespace kwtsdk::sim {

namespace {

constexpr const char* kDeviceFolder = "device";
constexpr const char* kFileName = "first-id";

bool writeDurably(const std::filesystem::path& path, const std::string& text) {
  const int file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) return false;
  const bool written = ::write(file, text.data(), text.size()) == static_cast<ssize_t>(text.size());
  const bool synced = written && ::fsync(file) == 0;
  return ::close(file) == 0 && synced;
}

void syncFolder(const std::filesystem::path& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return;
  ::fsync(folder);
  ::close(folder);
}

}  // namespace

std::uint32_t readFirstId(const std::filesystem::path& folder) {
  const auto path = folder / kDeviceFolder / kFileName;
  if (!std::filesystem::exists(path)) return 1;
  std::ifstream file(path);
  std::ostringstream content;
  content << file.rdbuf();

  std::string text = content.str();
  if (text.ends_with('\n')) text.pop_back();
  std::uint32_t id = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), id);
  if (failure != std::errc{} || end != text.data() + text.size() || id == 0 || id > kGreatestFirstId) {
    throw std::runtime_error(path.string() + " holds no recording id: write a number from 1 to " +
                             std::to_string(kGreatestFirstId) + " into it, or remove it to start from 1");
  }
  return id;
}

bool writeFirstId(const std::filesystem::path& folder, std::uint32_t id) {
  const auto device = folder / kDeviceFolder;
  std::error_code failure;
  std::filesystem::create_directory(device, failure);
  if (failure) return false;

  const auto path = device / kFileName, temporary = device / (std::string(kFileName) + ".new");
  if (!writeDurably(temporary, std::to_string(id) + "\n")) return false;
  std::filesystem::rename(temporary, path, failure);
  if (failure) return false;
  syncFolder(device);
  return true;
}

}  // namespace kwtsdk::sim
