#include "sim/link/pacing.h"

#include <algorithm>
#include <utility>

namespace kwtsdk::sim {

Duration AirTime::earliest(Duration ready) const {
  const Duration interval = timing_.connectionInterval;
  const Duration waited = std::max(ready - anchor_, Duration::zero());
  return anchor_ + (waited + interval - Duration(1)) / interval * interval;
}

Duration AirTime::reserve(Duration ready, std::size_t transmissions) {
  hold(ready);
  if (timing_.connectionInterval == Duration::zero()) return sent_;
  for (; transmissions > 0; --transmissions) {
    if (sentTogether_ == timing_.packetsPerInterval) hold(nextInterval());
    ++sentTogether_;
  }
  return sent_;
}

void AirTime::hold(Duration moment) {
  if (timing_.connectionInterval > Duration::zero()) moment = earliest(moment);
  if (moment <= sent_) return;
  sent_ = moment;
  sentTogether_ = 0;
}

void Pace::start(std::function<void()> onTick) {
  nextDue_ = scheduler_.now() + interval_;
  timer_ = scheduler_.repeatingTimer(interval_, interval_, Duration::zero(), std::move(onTick));
}

bool Pace::takeDue() {
  if (!running() || scheduler_.now() < nextDue_) return false;
  nextDue_ += interval_;
  return true;
}

}  // namespace kwtsdk::sim
