#include <kwtsdk/sim/fault_plan.h>

namespace kwtsdk::sim {

FaultPlan::~FaultPlan() = default;

bool faultApplies(Fault fault, LinkEvent event) {
  switch (fault) {
    case Fault::duplicate:
      return event != LinkEvent::subscription;
    case Fault::corrupt:
      return event == LinkEvent::write || event == LinkEvent::notification;
    case Fault::refuse:
      return event != LinkEvent::notification;
    default:
      return true;
  }
}

}  // namespace kwtsdk::sim
