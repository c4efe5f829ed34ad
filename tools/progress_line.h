#pragma once

#include <cstdint>
#include <optional>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::tool {

/// Percent, speed and time left in one line of the terminal on standard error; without a terminal nothing.
/// One thread at a time.
class ProgressLine {
 public:
  explicit ProgressLine(const Scheduler& scheduler);

  void show(std::uint64_t done, std::uint64_t total);
  void clear();

 private:
  struct Sample {
    Duration time;
    std::uint64_t done;
  };

  const Scheduler& scheduler_;
  const bool visible_;
  std::optional<Sample> first_;
  Duration shown_{0};
};

}  // namespace kwtsdk::tool
