#include <kwtsdk/sim/seeded_faults.h>

#include <algorithm>
#include <array>
#include <utility>

#include "sim/virtual_time/random.h"

namespace kwtsdk::sim {

// The seed is mixed first: the events' own seeds are consecutive, and neighbouring seeds must not overlap.
SeededFaults::SeededFaults(std::uint64_t seed, FaultRates rates)
    : nextSeed_(Random(seed).next()), rates_(rates) {}

Fault SeededFaults::choose(double chance) const {
  const std::array<std::pair<Fault, double>, 6> table{{{Fault::drop, rates_.drop},
                                                       {Fault::delay, rates_.delay},
                                                       {Fault::duplicate, rates_.duplicate},
                                                       {Fault::corrupt, rates_.corrupt},
                                                       {Fault::refuse, rates_.refuse},
                                                       {Fault::disconnect, rates_.disconnect}}};
  for (const auto& [fault, rate] : table) {
    if (chance < rate) return fault;
    chance -= rate;
  }
  return Fault::none;
}

FaultAction SeededFaults::next(LinkEvent event) {
  Random random(nextSeed_++);
  FaultAction action{choose(static_cast<double>(random.next() >> 11) * 0x1p-53), {}, 0};
  const auto longest = static_cast<std::uint64_t>(std::max<Duration::rep>(rates_.longestDelay.count(), 0));
  action.delay = Duration(static_cast<Duration::rep>(random.below(longest + 1)));
  action.position = static_cast<std::size_t>(random.next());
  return faultApplies(action.fault, event) ? action : FaultAction{};
}

}  // namespace kwtsdk::sim
