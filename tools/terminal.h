#pragma once

#include <optional>
#include <string>

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/progress.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::tool {

/// One line of the terminal on standard error, written over and over; without a terminal nothing. One thread
/// at a time.
class TerminalLine {
 public:
  explicit TerminalLine(const Scheduler& scheduler);

  bool visible() const { return visible_; }

  /// Whether it is visible and long enough unchanged to be read.
  bool isDue() const;

  void show(const std::string& text);
  void clear();

 private:
  const Scheduler& scheduler_;
  const bool visible_;
  std::optional<Duration> shown_;
};

/// Percent, speed and time left in one line of the terminal, told on any thread until the end.
class ProgressLine {
 public:
  explicit ProgressLine(const Scheduler& scheduler) : line_(scheduler) {}

  void show(const session::ProgressReport& report);
  void end();

 private:
  internal::Mutex mutex_;
  TerminalLine line_ KWT_GUARDED_BY(mutex_);
  bool isOver_ KWT_GUARDED_BY(mutex_) = false;
};

/// Length, size and level of a live recording in one line of the terminal. One thread at a time.
class RecordingLine {
 public:
  explicit RecordingLine(const Scheduler& scheduler) : line_(scheduler) {}

  bool visible() const { return line_.visible(); }
  void show(const opus::RecordingMeter::Reading& reading);
  void clear() { line_.clear(); }

 private:
  TerminalLine line_;
};

}  // namespace kwtsdk::tool
