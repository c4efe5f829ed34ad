#include "tools/progress_line.h"

#include <chrono>
#include <iomanip>
#include <sstream>

#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

double seconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

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

}  // namespace kwtsdk::tool
