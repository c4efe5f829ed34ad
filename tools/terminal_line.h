#pragma once

#include <optional>
#include <string>

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

}  // namespace kwtsdk::tool
