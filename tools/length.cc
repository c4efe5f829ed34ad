#include "tools/length.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <string_view>

#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

constexpr double kMinute = 60, kHour = 3600, kLongestLength = 1e6;

/// Negative for anything else.
double decimalIn(std::string_view text) {
  double number = -1;
  if (text.empty() || text.find_first_not_of("0123456789.") != std::string_view::npos) return number;
  const auto end = std::from_chars(text.data(), text.data() + text.size(), number).ptr;
  return end == text.data() + text.size() ? number : -1;
}

/// Negative when it is not understood.
double secondsIn(std::string_view text) {
  if (text.ends_with('s')) return decimalIn(text.substr(0, text.size() - 1));
  if (text.ends_with('m')) return kMinute * decimalIn(text.substr(0, text.size() - 1));
  if (text.ends_with('h')) return kHour * decimalIn(text.substr(0, text.size() - 1));
  const std::size_t colon = text.rfind(':');
  const double seconds = decimalIn(text.substr(colon == std::string_view::npos ? 0 : colon + 1));
  if (colon == std::string_view::npos || seconds < 0) return seconds;
  const std::string_view before = text.substr(0, colon);
  const std::size_t hoursEnd = std::min(before.find(':'), before.size());
  const double minutes = decimalIn(before.substr(hoursEnd == before.size() ? 0 : hoursEnd + 1));
  const double hours = hoursEnd == before.size() ? 0 : decimalIn(before.substr(0, hoursEnd));
  const bool isClock = seconds < kMinute && minutes >= 0 && hours >= 0 && (hours == 0 || minutes < kMinute);
  return isClock ? hours * kHour + minutes * kMinute + seconds : -1;
}

}  // namespace

Duration lengthOf(const std::string& text) {
  const double seconds = secondsIn(text);
  require(seconds > 0 && seconds <= kLongestLength,
          "-d needs a length such as 90, 10s, 5m, 1h, 1:30 or 1:02:03, of at most 1000000 s, which " + text +
              " is not");
  return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(seconds));
}

}  // namespace kwtsdk::tool
