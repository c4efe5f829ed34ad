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
  const MutexLock lock(mutex_);
  auto& found = queues_[&queue];
  if (!found) found = scheduler_.serialQueue(queue.label);
  return found;
}

}  // namespace kwtsdk::internal
