#include "sim/store/first_id_file.h"

#include <charconv>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <kwtsdk/bytes.h>

#include "sim/store/block_count.h"
#include "sim/store/device_file.h"

namespace kwtsdk::sim {

namespace {

constexpr const char* kFirstIdFileName = "first-id";

}  // namespace

std::uint32_t readFirstId(const std::filesystem::path& folder) {
  const auto path = deviceFile(folder, kFirstIdFileName);
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
  const std::string text = std::to_string(id) + "\n";
  return replaceDeviceFile(folder, kFirstIdFileName, Bytes(text.begin(), text.end()));
}

}  // namespace kwtsdk::sim
