#include "sim/virtual_time/lock.h"

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
  Core::Lock guard = core_->lock();
  while (!take(id)) {
    SimThread* const self = core_->self();
    if (self == nullptr) {
      guard.unlock();
      core_->fail("lock '" + name_ + "' is taken outside run() while another thread holds it");
    }
    core_->block(guard, *self,
                 {.kind = WaitKind::lock, .name = &name_, .list = &waiting_, .holder = &holder_});
  }
}

bool VirtualLock::try_lock() {
  core_->preemptionPoint();
  const Core::Lock guard = core_->lock();
  return take(caller());
}

void VirtualLock::unlock() {
  Core& core = *core_;  // the next holder may destroy this lock
  core.preemptionPoint();
  {
    Core::Lock guard = core.lock();
    if (holder_ != caller()) {
      guard.unlock();
      core.fail("lock '" + name_ + "' is unlocked by a thread that does not hold it");
    }
    if (--depth_ > 0) return;
    holder_ = 0;
    core.wakeOne(waiting_);
  }
  core.preemptionPoint();
}

}  // namespace kwtsdk::sim::virtual_time
