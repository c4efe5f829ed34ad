#pragma once

#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::internal {

/// A serial queue which can be closed while others still submit to it: the events' thread of a Bluetooth
/// stack. Exported for the libraries around the core.
class KWTSDK_EXPORT ClosableQueue {
 public:
  ClosableQueue(Scheduler& scheduler, const std::string& label);

  /// Dropped once closed.
  void async(std::function<void()> work);

  /// Whether this thread is inside work of this queue.
  bool isCurrent() const;

  /// Drops what has not begun and waits for what runs, unless called by it.
  void close();

 private:
  // Held across a call of the scheduler, hence the scheduler's own lock.
  const std::shared_ptr<RecursiveLock> lock_;
  std::shared_ptr<SerialQueue> queue_;
};

}  // namespace kwtsdk::internal
