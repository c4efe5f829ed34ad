#include "tools/recording_line.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>

#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

std::string lengthText(std::chrono::milliseconds length) {
  const auto tenths = static_cast<std::intmax_t>(length / std::chrono::milliseconds(100));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%jd:%02jd.%jd", tenths / 600, tenths / 10 % 60, tenths % 10);
  return text.data();
}

/// From -60 to 0 dBFS.
std::string levelText(const std::optional<double>& peak) {
  constexpr double lowest = -60;
  constexpr std::size_t width = 20;
  if (!peak) return "[" + std::string(width, ' ') + "]";
  const double share = std::clamp(1 - *peak / lowest, 0.0, 1.0);
  const auto filled = static_cast<std::size_t>(std::lround(share * static_cast<double>(width)));
  std::array<char, 32> level{};
  std::snprintf(level.data(), level.size(), "] %3.0f dBFS", std::max(*peak, lowest));
  return std::string("[").append(filled, '#').append(width - filled, ' ').append(level.data());
}

}  // namespace

void RecordingLine::show(const opus::RecordingMeter::Reading& reading) {
  if (!line_.visible()) return;
  line_.show(lengthText(reading.recorded) + "  " + bytesText(reading.bytes) + "  " + levelText(reading.peak));
}

}  // namespace kwtsdk::tool
