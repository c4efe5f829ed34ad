#pragma once

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/scheduler.h>

#include "tools/terminal_line.h"

namespace kwtsdk::tool {

/// Length, size and level of a live recording in one line of the terminal. One thread at a time.
class RecordingLine {
 public:
  explicit RecordingLine(const Scheduler& scheduler) : line_(scheduler) {}

  void show(const opus::RecordingMeter::Reading& reading);
  void clear() { line_.clear(); }

 private:
  TerminalLine line_;
};

}  // namespace kwtsdk::tool
