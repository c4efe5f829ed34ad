#include "tools/words.h"

#include <array>
#include <cstddef>
#include <cstdio>

namespace kwtsdk::tool {

std::string sizeText(std::uint64_t bytes) {
  constexpr std::array<const char*, 3> units{"kB", "MB", "GB"};
  if (bytes < 1000) return std::to_string(bytes) + " bytes";
  double count = static_cast<double>(bytes) / 1000;
  std::size_t unit = 0;
  while (count >= 999.95 && unit + 1 < units.size()) {  // which would be printed as 1000.0
    count /= 1000;
    ++unit;
  }
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.1f %s", count, units[unit]);
  return text.data();
}

std::string batteryText(std::uint64_t level) {
  if (level <= kFullBattery) return std::to_string(level) + " %";
  return std::to_string(level) + " (the recorder's number, which is no percentage)";
}

std::string typeText(std::int64_t type) {
  constexpr std::array<const char*, 5> names{"normal", "noise-reduced", "call", "media", "ambient"};
  const auto number = static_cast<std::size_t>(type);
  return number < names.size() ? names[number] : std::to_string(type);
}

}  // namespace kwtsdk::tool
