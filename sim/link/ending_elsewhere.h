#pragma once

#include <memory>
#include <utility>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/simulated_link.h>

namespace kwtsdk::sim {

/// For programs: the link's end waits for its thread, which may be busy with a delay that the script asks
/// for, so it ends on a queue that nobody waits for.
inline std::shared_ptr<SimulatedLink> endingElsewhere(const std::shared_ptr<Scheduler>& scheduler,
                                                      const std::shared_ptr<SimulatedLink>& link) {
  return {link.get(), [scheduler, link = link](SimulatedLink*) mutable {
            const auto queue = scheduler->serialQueue("kwt.sim.release");
            queue->async([queue, link = std::move(link)] {});
          }};
}

}  // namespace kwtsdk::sim
