#pragma once

#include <cstdint>

#include <kwtsdk/sim/fault_plan.h>

namespace kwtsdk::sim {

/// How likely each fault is at one event, 0 to 1, at most 1 in all. A fault that does not apply to the event
/// does not happen.
struct FaultRates {
  double drop = 0;
  double delay = 0;
  double duplicate = 0;
  double corrupt = 0;
  double refuse = 0;
  double disconnect = 0;
  Duration longestDelay = std::chrono::milliseconds(500);
};

/// Random faults; the same seed gives the same faults on every machine.
class KWTSDK_EXPORT SeededFaults : public FaultPlan {
 public:
  SeededFaults(std::uint64_t seed, FaultRates rates);
  FaultAction next(LinkEvent event) override;

 private:
  Fault choose(double chance) const;

  std::uint64_t nextSeed_;
  FaultRates rates_;
};

}  // namespace kwtsdk::sim
