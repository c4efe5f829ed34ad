#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/scheduler.h>

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

/// Percent, speed and time left in one line of the terminal. One thread at a time.
class ProgressLine {
 public:
  explicit ProgressLine(const Scheduler& scheduler) : scheduler_(scheduler), line_(scheduler) {}

  void show(std::uint64_t done, std::uint64_t total);
  void clear() { line_.clear(); }

 private:
  struct Sample {
    Duration time;
    std::uint64_t done;
  };

  const Scheduler& scheduler_;
  TerminalLine line_;
  std::optional<Sample> first_;
};

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
