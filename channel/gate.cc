#include "channel/gate.h"

#include <utility>

namespace kwtsdk::internal {

void Gate::whenFree(std::function<void()> work) {
  Work own;
  own.push_back(std::move(work));
  {
    const MutexLock lock(mutex_);
    work_.splice(work_.end(), own);
  }
  doWork();
}

void Gate::doWork() noexcept {
  // Looked at again after each unlock: who failed to get the lock meanwhile relies on its holder to do so.
  while (anyWork() && lock_->try_lock()) {
    ++depth_;
    for (Work next = takeOne(); !next.empty(); next = takeOne()) {
      try {
        next.front()();
      } catch (...) {  // who gave it has gone on
      }
      done_.splice(done_.end(), next);
    }
    leave();
  }
}

void Gate::leave() noexcept {
  Work done;
  if (--depth_ == 0) done.swap(done_);
  lock_->unlock();
}

bool Gate::anyWork() const {
  const MutexLock lock(mutex_);
  return !work_.empty();
}

Gate::Work Gate::takeOne() {
  Work one;
  const MutexLock lock(mutex_);
  if (!work_.empty()) one.splice(one.end(), work_, work_.begin());
  return one;
}

}  // namespace kwtsdk::internal
