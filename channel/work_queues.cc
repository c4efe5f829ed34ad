#include "channel/work_queues.h"

#include <utility>

namespace kwtsdk::internal {

bool WorkQueues::async(const QueueLabel& queue, std::function<void()> work) {
  return guardedCall(log_, queue.label, [&] {
    find(queue)->async(
        [log = log_, label = queue.label, work = std::move(work)] { guardedCall(log, label, work); });
  });
}

std::shared_ptr<SerialQueue> WorkQueues::find(const QueueLabel& queue) {
  {
    const MutexLock lock(mutex_);
    const auto found = queues_.find(&queue);
    if (found != queues_.end()) return found->second;
  }
  auto made = scheduler_.serialQueue(queue.label);  // without the lock: it may be the host's
  const MutexLock lock(mutex_);
  return queues_.try_emplace(&queue, std::move(made)).first->second;
}

}  // namespace kwtsdk::internal
