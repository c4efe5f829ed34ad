#pragma once

#include <functional>
#include <memory>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

/// The link's callback thread, which can be closed while others still submit to it.
class LinkQueue {
 public:
  explicit LinkQueue(Scheduler& scheduler);

  /// Dropped once closed.
  void async(std::function<void()> work);

  /// Drops what has not begun and waits for what runs, unless called by it.
  void close();

 private:
  // Held across a call of the scheduler, hence the scheduler's own lock.
  std::shared_ptr<RecursiveLock> lock_;
  std::shared_ptr<SerialQueue> queue_;
};

}  // namespace kwtsdk::sim
