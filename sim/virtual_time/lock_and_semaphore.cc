#include "sim/virtual_time/lock_and_semaphore.h"

#include <atomic>
#include <utility>

namespace kwtsdk::sim::virtual_time {

namespace {

// Threads outside the simulation have identities too: a host may use the library before and after a run.
ThreadId outsideThread() {
  static std::atomic<ThreadId> last{ThreadId{1} << 63U};
  thread_local const ThreadId mine = ++last;
  return mine;
}

}  // namespace

VirtualLock::VirtualLock(std::shared_ptr<Core> core, std::string name)
    : core_(std::move(core)), name_(std::move(name)) {}

VirtualLock::~VirtualLock() {
  const MutexLock guard(core_->mutex);
  if (holder_ != 0) core_->fail("lock '" + name_ + "' is destroyed while a thread holds it");
}

ThreadId VirtualLock::caller() const {
  const SimThread* const self = core_->self();
  return self != nullptr ? self->id : outsideThread();
}

bool VirtualLock::take(ThreadId caller) {
  if (holder_ != 0 && holder_ != caller) return false;
  holder_ = caller;
  ++depth_;
  return true;
}

void VirtualLock::lock() {
  core_->preemptionPoint();
  const ThreadId id = caller();
  const MutexLock guard(core_->mutex);
  while (!take(id)) {
    SimThread* const self = core_->self();
    if (self == nullptr) {
      core_->fail("lock '" + name_ + "' is taken outside run() while another thread holds it");
    }
    core_->block(*self, {.kind = WaitKind::lock, .name = &name_, .list = &waiting_, .holder = &holder_});
  }
}

bool VirtualLock::try_lock() {
  core_->preemptionPoint();
  const MutexLock guard(core_->mutex);
  return take(caller());
}

void VirtualLock::unlock() {
  Core& core = *core_;  // the next holder may destroy this lock
  core.preemptionPoint();
  {
    const MutexLock guard(core_->mutex);
    if (holder_ != caller())
      core_->fail("lock '" + name_ + "' is unlocked by a thread that does not hold it");
    if (--depth_ > 0) return;
    holder_ = 0;
    core_->wakeOne(waiting_);
  }
  core.preemptionPoint();
}

VirtualSemaphore::VirtualSemaphore(std::shared_ptr<Core> core, std::string name)
    : core_(std::move(core)), name_(std::move(name)) {}

VirtualSemaphore::~VirtualSemaphore() {
  const MutexLock lock(core_->mutex);
  if (!waiting_.empty()) core_->fail("semaphore '" + name_ + "' is destroyed while a thread waits for it");
}

void VirtualSemaphore::signal() {
  Core& core = *core_;  // the thread woken may destroy this semaphore
  core.preemptionPoint();
  {
    const MutexLock lock(core_->mutex);
    ++count_;
    core_->wakeOne(waiting_);
  }
  core.preemptionPoint();
}

// The thread woken looks again when it gets its turn: another may have been faster, and a signal at the very
// deadline counts if it came before the turn.
bool VirtualSemaphore::wait(std::optional<Duration> timeout) {
  SimThread& self = core_->requireSelf("wait for semaphore '" + name_ + "'");
  core_->preemptionPoint();
  const MutexLock lock(core_->mutex);
  const auto deadline = timeout ? deadlineAfter(core_->now(), *timeout) : std::nullopt;
  while (count_ == 0) {
    if (deadline && core_->now() >= *deadline) return false;
    core_->block(self,
                 {.kind = WaitKind::semaphore, .name = &name_, .list = &waiting_, .deadline = deadline});
  }
  --count_;
  return true;
}

}  // namespace kwtsdk::sim::virtual_time
