#include "tools/terminal.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "tools/output.h"

namespace kwtsdk::tool {
namespace {

constexpr const char* kLineStart = "\r\x1b[K";  // carriage return, clear to the end of the line
constexpr Duration kShortestPause = std::chrono::milliseconds(100);

double seconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

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

TerminalLine::TerminalLine(const Scheduler& scheduler)
    : scheduler_(scheduler), visible_(::isatty(STDERR_FILENO) == 1) {}

bool TerminalLine::isDue() const {
  return visible_ && (!shown_ || scheduler_.now() - *shown_ >= kShortestPause);
}

void TerminalLine::show(const std::string& text) {
  if (!visible_) return;
  shown_ = scheduler_.now();
  std::cerr << kLineStart << text << std::flush;
}

void TerminalLine::clear() {
  if (shown_) std::cerr << kLineStart << std::flush;
  shown_.reset();
}

void ProgressLine::show(const session::ProgressReport& report) {
  const internal::MutexLock lock(mutex_);
  if (isOver_ || report.total == 0 || !line_.isDue()) return;
  std::ostringstream line;
  line << std::setw(3) << report.done * 100 / report.total << " %  "
       << ofBytesText(report.done, report.total);
  if (report.left) {
    line << std::fixed << std::setprecision(1) << "  " << report.bytesPerSecond / 1000 << " kB/s  "
         << std::setprecision(0) << seconds(*report.left) << " s left";
  }
  line_.show(line.str());
}

void ProgressLine::end() {
  const internal::MutexLock lock(mutex_);
  isOver_ = true;
  line_.clear();
}

void RecordingLine::show(const opus::RecordingMeter::Reading& reading) {
  line_.show(lengthText(reading.recorded) + "  " + bytesText(reading.bytes) + "  " + levelText(reading.peak));
}

}  // namespace kwtsdk::tool
