#pragma once

#include <cstdint>
#include <optional>

#include <kwtsdk/scheduler.h>

#include "tools/terminal_line.h"

namespace kwtsdk::tool {

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

}  // namespace kwtsdk::tool
