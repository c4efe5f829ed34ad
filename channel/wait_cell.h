#pragma once

#include <memory>
#include <mutex>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "channel/delivery_scope.h"

namespace kwtsdk::internal {

/// What a wait shares with the callback that ends it. The first outcome wins: after the time-out a late value
/// goes into a cell nobody reads. One cell per wait, held by shared_ptr on both sides.
template <class T>
class WaitCell {
 public:
  WaitCell(Scheduler& scheduler, const std::string& name, T fallback)
      : semaphore_(scheduler.semaphore(name)), value_(std::move(fallback)) {}

  void finish(T value) {
    {
      const std::lock_guard lock(mutex_);
      if (std::exchange(decided_, true)) return;
      value_ = std::move(value);
    }
    DeliveryScope::signal(semaphore_);
  }

  /// The value given, or the fallback when none came in time.
  T wait(Duration timeout) {
    semaphore_->wait(timeout);
    const std::lock_guard lock(mutex_);
    decided_ = true;
    return value_;
  }

  bool decided() const {
    const std::lock_guard lock(mutex_);
    return decided_;
  }

 private:
  const std::shared_ptr<Semaphore> semaphore_;
  mutable std::mutex mutex_;
  T value_;
  bool decided_ = false;
};

}  // namespace kwtsdk::internal
