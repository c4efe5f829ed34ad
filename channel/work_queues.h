#pragma once

#include <functional>
#include <map>
#include <memory>

#include <kwtsdk/scheduler.h>

#include "platform/posix/host_call.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

/// A serial queue's name in reports about threads. The object is the queue: two may have the same label.
struct QueueLabel {
  const char* label;
};

/// One facade's serial queues, each created on first use. Any thread.
class WorkQueues {
 public:
  WorkQueues(Scheduler& scheduler, Logger log) : scheduler_(scheduler), log_(std::move(log)) {}

  /// Submits work; what it throws stops there and is logged. False, and logged, when the queue could not take
  /// it.
  bool async(const QueueLabel& queue, std::function<void()> work);

 private:
  std::shared_ptr<SerialQueue> find(const QueueLabel& queue);

  Scheduler& scheduler_;
  const Logger log_;
  Mutex mutex_;
  std::map<const QueueLabel*, std::shared_ptr<SerialQueue>> queues_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::internal
