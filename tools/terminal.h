#pragma once

#include <cstddef>
#include <optional>
#include <string>

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/progress.h>

#include "platform/threads/mutex.h"
#include "tools/output.h"

namespace kwtsdk::tool {

/// Where progress goes, which is on standard error like nothing else of a program's: for all lines from then
/// on.
enum class ProgressMode {
  automatic,  // a line of the terminal, if it is one that can write over it
  none,
  json  // one object a line, also without a terminal
};
void setProgress(ProgressMode mode);

/// Of the terminal behind a descriptor; none when there is no terminal, or it does not tell.
std::optional<std::size_t> terminalColumns(int descriptor);

/// As much of a text's beginning as so many columns surely hold.
std::string cutToColumns(const std::string& text, std::size_t columns);

/// One line of the terminal on standard error, written over and over, cut to its width; without a terminal
/// nothing. For programs an object for each text. One thread at a time.
class TerminalLine {
 public:
  explicit TerminalLine(const Scheduler& scheduler);

  bool visible() const { return mode_ != ProgressMode::none; }
  bool isForPrograms() const { return mode_ == ProgressMode::json; }

  /// Whether it is visible and long enough unchanged to be read.
  bool isDue() const;

  void show(const std::string& text);
  void tell(const Record& record);  // if it is for programs
  void clear();

 private:
  const Scheduler& scheduler_;
  const ProgressMode mode_;  // automatic: there is a terminal
  std::optional<Duration> shown_;
};

/// Percent, speed and time left in one line of the terminal, told on any thread until the end.
class ProgressLine {
 public:
  explicit ProgressLine(const Scheduler& scheduler) : line_(scheduler) {}

  void show(const session::ProgressReport& report);
  void end();

  /// The same; for programs with the last report, which may still be on its way.
  void end(const session::ProgressReport& last);

 private:
  void tell(const session::ProgressReport& report) KWT_REQUIRES(mutex_);

  internal::Mutex mutex_;
  TerminalLine line_ KWT_GUARDED_BY(mutex_);
  bool isOver_ KWT_GUARDED_BY(mutex_) = false;
  bool hasToldEnd_ KWT_GUARDED_BY(mutex_) = false;
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
