#include "sim/link/air_time.h"

#include <algorithm>

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

}  // namespace kwtsdk::sim
