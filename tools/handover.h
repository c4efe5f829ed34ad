#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::tool {

/// One value from a thread of the library to the tool's; the first one counts. Callbacks share it, since they
/// may come when nobody waits any more.
template <class T>
class Handover {
 public:
  Handover(Scheduler& scheduler, const std::string& name) : arrived_(scheduler.semaphore(name)) {}

  void put(T value) {
    const internal::MutexLock lock(mutex_);
    if (value_) return;
    value_ = std::move(value);
    arrived_->signal();
  }

  /// None when the time runs out. Called once.
  std::optional<T> take(std::optional<Duration> timeout) {
    if (!arrived_->wait(timeout)) return std::nullopt;
    const internal::MutexLock lock(mutex_);
    return value_;
  }

 private:
  const std::shared_ptr<Semaphore> arrived_;
  internal::Mutex mutex_;
  std::optional<T> value_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::tool
