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

void ProgressLine::show(std::uint64_t done, std::uint64_t total) {
  const Duration now = scheduler_.now();
  const bool isFirst = !first_;
  if (isFirst) first_ = {now, done};
  if (total == 0 || !line_.isDue()) return;

  std::ostringstream line;
  line << std::setw(3) << done * 100 / total << " %  " << ofBytesText(done, total);
  // The bytes of the first packet came before the measurement.
  const double elapsed = seconds(now - first_->time),
               speed = static_cast<double>(done - first_->done) / elapsed;
  if (!isFirst && speed > 0) {
    line << std::fixed << std::setprecision(1) << "  " << speed / 1000 << " kB/s  " << std::setprecision(0)
         << static_cast<double>(total - done) / speed << " s left";
  }
  line_.show(line.str());
}

void RecordingLine::show(const opus::RecordingMeter::Reading& reading) {
  if (!line_.visible()) return;
  line_.show(lengthText(reading.recorded) + "  " + bytesText(reading.bytes) + "  " + levelText(reading.peak));
}

}  // namespace kwtsdk::tool
