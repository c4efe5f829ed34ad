#include "sim/link/pace.h"

#include <utility>

namespace kwtsdk::sim {

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
