#include "tools/progress_line.h"

#include <unistd.h>

#include <chrono>
#include <iomanip>
#include <iostream>
#include <sstream>

#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

constexpr const char* kLineStart = "\r\x1b[K";  // carriage return, clear to the end of the line
constexpr Duration kShortestPause = std::chrono::milliseconds(100);

double seconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

ProgressLine::ProgressLine(const Scheduler& scheduler)
    : scheduler_(scheduler), visible_(::isatty(STDERR_FILENO) == 1) {}

void ProgressLine::show(std::uint64_t done, std::uint64_t total) {
  const Duration now = scheduler_.now();
  const bool isFirst = !first_;
  if (isFirst) first_ = {now, done};
  if (!visible_ || total == 0 || (!isFirst && now - shown_ < kShortestPause)) return;
  shown_ = now;

  std::ostringstream line;
  line << kLineStart << std::setw(3) << done * 100 / total << " %  " << ofBytesText(done, total);
  // The bytes of the first packet came before the measurement.
  const double elapsed = seconds(now - first_->time),
               speed = static_cast<double>(done - first_->done) / elapsed;
  if (!isFirst && speed > 0) {
    line << std::fixed << std::setprecision(1) << "  " << speed / 1000 << " kB/s  " << std::setprecision(0)
         << static_cast<double>(total - done) / speed << " s left";
  }
  std::cerr << line.str() << std::flush;
}

void ProgressLine::clear() {
  if (visible_ && first_) std::cerr << kLineStart << std::flush;
}

}  // namespace kwtsdk::tool
