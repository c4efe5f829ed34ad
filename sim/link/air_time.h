#pragma once

#include <cstddef>

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

}  // namespace kwtsdk::sim
