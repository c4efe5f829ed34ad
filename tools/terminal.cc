#include "tools/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <sstream>
#include <string_view>

namespace kwtsdk::tool {
namespace {

constexpr const char* kLineStart = "\r\x1b[K";  // carriage return, clear to the end of the line
constexpr Duration kShortestPause = std::chrono::milliseconds(100);

std::atomic<ProgressMode>& chosenMode() {
  static std::atomic<ProgressMode> mode = ProgressMode::automatic;
  return mode;
}

/// Terminals without a name, or that are "dumb", know no sequences.
bool isCapableTerminal() {
  const char* const name = std::getenv("TERM");
  return ::isatty(STDERR_FILENO) == 1 && name != nullptr && *name != '\0' && std::string_view(name) != "dumb";
}

ProgressMode currentMode() {
  const ProgressMode mode = chosenMode();
  if (mode != ProgressMode::automatic) return mode;
  return isCapableTerminal() ? ProgressMode::automatic : ProgressMode::none;
}

const char* wordOf(session::ProgressReport::Stage stage) {
  constexpr std::array<const char*, 10> words{"queued",     "connecting", "asking",    "transferring",
                                              "verifying",  "deleting",   "recording", "stopping",
                                              "installing", "over"};
  return words.at(static_cast<std::size_t>(stage));
}

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

void setProgress(ProgressMode mode) { chosenMode() = mode; }

std::optional<std::size_t> terminalColumns(int descriptor) {
  winsize size{};
  if (::ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) return std::nullopt;
  return size.ws_col;
}

std::string cutToColumns(const std::string& text, std::size_t columns) {
  std::size_t used = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if ((byte & 0xC0U) == 0x80U) continue;  // belongs to the character before it
    used += byte < 0xE1U ? 1 : 2;           // from U+1000 on characters may be two columns wide
    if (used > columns) return text.substr(0, i);
  }
  return text;
}

TerminalLine::TerminalLine(const Scheduler& scheduler) : scheduler_(scheduler), mode_(currentMode()) {}

bool TerminalLine::isDue() const {
  return visible() && (!shown_ || scheduler_.now() - *shown_ >= kShortestPause);
}

void TerminalLine::show(const std::string& text) {
  if (isForPrograms()) return tell({{"text", text}});
  if (!visible()) return;
  shown_ = scheduler_.now();
  // Asked each time, since terminals are resized. In the last column some already begin the next line, and an
  // interrupt is shown as ^C behind the text.
  constexpr std::size_t usual = 80;
  constexpr std::size_t margin = 3;
  const std::size_t columns = std::max(terminalColumns(STDERR_FILENO).value_or(usual), margin + 1);
  std::cerr << kLineStart << cutToColumns(text, columns - margin) << std::flush;
}

void TerminalLine::tell(const Record& record) {
  if (!isForPrograms()) return;
  shown_ = scheduler_.now();
  std::cerr << jsonText(record) + "\n" << std::flush;
}

void TerminalLine::clear() {
  if (shown_ && !isForPrograms()) std::cerr << kLineStart << std::flush;
  shown_.reset();
}

void ProgressLine::show(const session::ProgressReport& report) {
  const internal::MutexLock lock(mutex_);
  if (isOver_) return;
  if (line_.isForPrograms()) return tell(report);
  if (report.total == 0 || !line_.isDue()) return;
  std::ostringstream line;
  if (report.items > 1) line << report.item << " of " << report.items << ' ';
  if (report.stage == session::ProgressReport::Stage::verifying) line << "Checking ";
  line << std::setw(3) << report.done * 100 / report.total << " %  "
       << ofBytesText(report.done, report.total);
  if (report.left) {
    line << std::fixed << std::setprecision(1) << "  " << report.bytesPerSecond / 1000 << " kB/s  "
         << std::setprecision(0) << seconds(*report.left) << " s left";
  }
  line_.show(line.str());
}

/// The session reports as often as is good for a reader.
void ProgressLine::tell(const session::ProgressReport& report) {
  hasToldEnd_ = hasToldEnd_ || report.stage == session::ProgressReport::Stage::over;
  Record record{{"stage", std::string(wordOf(report.stage))},
                {"done", report.done},
                {"seconds", seconds(report.elapsed)},
                {"bytesPerSecond", report.bytesPerSecond}};
  if (report.total > 0) record["total"] = report.total;
  if (report.left) record["secondsLeft"] = seconds(*report.left);
  if (report.items > 0) {
    record["item"] = std::uint64_t{report.item};
    record["items"] = std::uint64_t{report.items};
  }
  line_.tell(record);
}

void ProgressLine::end(const session::ProgressReport& last) {
  {
    const internal::MutexLock lock(mutex_);
    if (!isOver_ && !hasToldEnd_ && line_.isForPrograms()) tell(last);
  }
  end();
}

void ProgressLine::end() {
  const internal::MutexLock lock(mutex_);
  isOver_ = true;
  line_.clear();
}

void RecordingLine::show(const opus::RecordingMeter::Reading& reading) {
  if (line_.isForPrograms()) {
    Record record{
        {"stage", std::string("recording")}, {"seconds", seconds(reading.recorded)}, {"done", reading.bytes}};
    if (reading.peak) record["peak"] = *reading.peak;
    return line_.tell(record);
  }
  line_.show(lengthText(reading.recorded) + "  " + levelText(reading.peak) + "  " + bytesText(reading.bytes));
}

}  // namespace kwtsdk::tool
