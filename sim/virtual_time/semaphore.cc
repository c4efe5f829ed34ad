#include "sim/virtual_time/semaphore.h"

#include <utility>

namespace kwtsdk::sim::virtual_time {

VirtualSemaphore::VirtualSemaphore(std::shared_ptr<Core> core, std::string name)
    : core_(std::move(core)), name_(std::move(name)) {}

VirtualSemaphore::~VirtualSemaphore() {
  if (!waiting_.empty()) core_->fail("semaphore '" + name_ + "' is destroyed while a thread waits for it");
}

void VirtualSemaphore::signal() {
  Core& core = *core_;  // the thread woken may destroy this semaphore
  core.preemptionPoint();
  {
    const Core::Lock lock = core.lock();
    ++count_;
    core.wakeOne(waiting_);
  }
  core.preemptionPoint();
}

// The thread woken looks again when it gets its turn: another may have been faster, and a signal at the very
// deadline counts if it came before the turn.
bool VirtualSemaphore::wait(std::optional<Duration> timeout) {
  SimThread& self = core_->requireSelf("wait for semaphore '" + name_ + "'");
  core_->preemptionPoint();
  Core::Lock lock = core_->lock();
  const auto deadline = timeout ? deadlineAfter(core_->now(), *timeout) : std::nullopt;
  while (count_ == 0) {
    if (deadline && core_->now() >= *deadline) return false;
    core_->block(lock, self,
                 {.kind = WaitKind::semaphore, .name = &name_, .list = &waiting_, .deadline = deadline});
  }
  --count_;
  return true;
}

}  // namespace kwtsdk::sim::virtual_time
