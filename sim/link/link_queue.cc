#include "sim/link/link_queue.h"

#include <mutex>
#include <utility>

namespace kwtsdk::sim {

LinkQueue::LinkQueue(Scheduler& scheduler)
    : lock_(scheduler.recursiveLock("kwt.sim.link")), queue_(scheduler.serialQueue("kwt.sim.link")) {}

void LinkQueue::async(std::function<void()> work) {
  const std::unique_lock lock(*lock_);
  if (queue_) queue_->async(std::move(work));
}

void LinkQueue::close() {
  std::shared_ptr<SerialQueue> closing;  // outlives the lock: what it waits for may be submitting
  const std::unique_lock lock(*lock_);
  closing = std::exchange(queue_, nullptr);
}

}  // namespace kwtsdk::sim
