#include <kwtsdk/session/progress.h>

#include <array>
#include <chrono>
#include <cstdio>

namespace kwtsdk::session {
namespace {

constexpr double kKilo = 1e3, kMega = 1e6;

template <class... Numbers>
std::string formatted(const char* format, Numbers... numbers) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), format, numbers...);
  return text.data();
}

const char* wordOf(ProgressReport::Stage stage) {
  constexpr std::array<const char*, 10> words{"waiting",    "connecting", "asking",    "transferring",
                                              "checking",   "deleting",   "recording", "stopping",
                                              "installing", "over"};
  return words.at(static_cast<std::size_t>(stage));
}

/// Both in the unit that suits the greater one.
std::string amounts(std::uint64_t done, std::uint64_t total) {
  const bool isMega = static_cast<double>(total) >= kMega;
  const double unit = isMega ? kMega : kKilo;
  return formatted("%.1f of %.1f %s", static_cast<double>(done) / unit, static_cast<double>(total) / unit,
                   isMega ? "MB" : "kB");
}

std::string timeText(Duration time) {
  const auto seconds = std::chrono::ceil<std::chrono::seconds>(time).count();
  constexpr std::int64_t minute = 60, hour = 3600;
  if (seconds < hour) {
    return formatted("%lld:%02lld", static_cast<long long>(seconds / minute),
                     static_cast<long long>(seconds % minute));
  }
  return formatted("%lld:%02lld:%02lld", static_cast<long long>(seconds / hour),
                   static_cast<long long>(seconds % hour / minute), static_cast<long long>(seconds % minute));
}

}  // namespace

std::string ProgressReport::text() const {
  std::string text;
  const auto add = [&text](const std::string& part) { text += (text.empty() ? "" : "  ") + part; };
  if (items > 1) add(std::to_string(item) + " of " + std::to_string(items));
  if (total == 0) {
    add(wordOf(stage));
    if (done > 0) add(formatted("%.1f kB", static_cast<double>(done) / kKilo));
    return text;
  }
  add(formatted("%u %%",
                static_cast<unsigned>(static_cast<double>(done) * 100 / static_cast<double>(total))));
  add(amounts(done, total));
  if (bytesPerSecond > 0) add(formatted("%.1f kB/s", bytesPerSecond / kKilo));
  if (left) add(timeText(*left) + " left");
  return text;
}

}  // namespace kwtsdk::session
