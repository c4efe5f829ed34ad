#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/link_timing.h>

namespace kwtsdk::sim {

/// Gives transmissions their moments: the connection's intervals and the room in each. Moments never go
/// back, so that what is sent first arrives first.
class AirTime {
 public:
  AirTime(const LinkTiming& timing, Duration start) : timing_(timing), anchor_(start), sent_(start) {}

  /// The moment from `ready` on at which the last of these transmissions leaves.
  Duration reserve(Duration ready, std::size_t transmissions);

  /// Nothing leaves before `moment`.
  void hold(Duration moment);

  /// The earliest interval that follows whatever has left so far.
  Duration nextInterval() const { return sentTogether_ == 0 ? sent_ : sent_ + timing_.connectionInterval; }

 private:
  Duration earliest(Duration ready) const;

  LinkTiming timing_;
  Duration anchor_;
  Duration sent_;
  unsigned sentTogether_ = 0;
};

/// Tells how many packets are due since the start, one in each interval. It goes by the clock, not by the
/// timer's fires, of which a busy machine misses some. One thread at a time.
class Pace {
 public:
  Pace(Scheduler& scheduler, Duration interval) : scheduler_(scheduler), interval_(interval) {}

  /// `onTick` runs on a thread of the timer's, each time a packet becomes due; once more after the stop if it
  /// is running then. Throws where no timer can be had, and is not running.
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
