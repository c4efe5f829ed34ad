#include "platform/gatt/closable_queue.h"

#include <mutex>
#include <utility>

namespace kwtsdk::internal {
namespace {

thread_local const ClosableQueue* current = nullptr;

}  // namespace

ClosableQueue::ClosableQueue(Scheduler& scheduler, const std::string& label)
    : lock_(scheduler.recursiveLock(label)), queue_(scheduler.serialQueue(label)) {}

void ClosableQueue::async(std::function<void()> work) {
  const std::unique_lock lock(*lock_);
  if (!queue_) return;
  queue_->async([this, work = std::move(work)] {
    current = this;
    work();
    current = nullptr;
  });
}

bool ClosableQueue::isCurrent() const { return current == this; }

void ClosableQueue::close() {
  std::shared_ptr<SerialQueue> closing;  // outlives the lock: what it waits for may be submitting
  const std::unique_lock lock(*lock_);
  closing = std::exchange(queue_, nullptr);
}

}  // namespace kwtsdk::internal
