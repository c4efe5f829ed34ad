#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <utility>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/simulated_link.h>

namespace kwtsdk::sim {

/// For programs: the link's end waits for its thread, which may be busy with a delay that the script asks
/// for, so it ends on a queue that nobody waits for; where no thread can be had for that, it ends here.
/// `onEnd`, unless empty, is called there afterwards.
inline std::shared_ptr<SimulatedLink> endingElsewhere(const std::shared_ptr<Scheduler>& scheduler,
                                                      const std::shared_ptr<SimulatedLink>& link,
                                                      std::function<void()> onEnd = nullptr) {
  const auto end = std::make_shared<std::function<void()>>([link = link, onEnd = std::move(onEnd)]() mutable {
    link.reset();
    if (onEnd) onEnd();
  });
  return {link.get(), [scheduler, end](SimulatedLink*) {
            try {
              const auto queue = scheduler->serialQueue("kwt.sim.release");
              queue->async([queue, end] { (*end)(); });
            } catch (const std::exception&) {
              (*end)();
            }
          }};
}

}  // namespace kwtsdk::sim
