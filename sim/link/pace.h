#pragma once

#include <functional>
#include <memory>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

/// Tells how many packets are due since the start, one in each interval. It goes by the clock, not by the
/// timer's fires, of which a busy machine misses some. One thread at a time.
class Pace {
 public:
  Pace(Scheduler& scheduler, Duration interval) : scheduler_(scheduler), interval_(interval) {}

  /// `onTick` runs on a thread of the timer's, each time a packet becomes due; once more after the stop if it
  /// is running then.
  void start(std::function<void()> onTick);
  void stop() { timer_.reset(); }
  bool running() const { return timer_ != nullptr; }

  /// Whether one more packet is due, which then counts as taken.
  bool takeDue();

 private:
  Scheduler& scheduler_;
  const Duration interval_;
  std::shared_ptr<Timer> timer_;
  Duration nextDue_{0};
};

}  // namespace kwtsdk::sim
