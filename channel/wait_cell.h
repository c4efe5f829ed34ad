#pragma once

#include <memory>
#include <mutex>
#include <optional>
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

  /// For the callback to hold: when the last copy of it is gone, uncalled, the wait ends with the fallback.
  static std::shared_ptr<void> endWhenDropped(const std::shared_ptr<WaitCell>& cell) {
    return {nullptr, [cell](void*) { cell->drop(); }};
  }

  /// The value given, or the fallback when none came in time; waits without limit for none.
  T wait(std::optional<Duration> timeout) {
    // What this thread itself raised inside a delivery, nobody else is going to fire.
    const bool ended = DeliveryScope::withdraw(semaphore_) || semaphore_->wait(timeout);
    const bool decided = decide();
    // Decided at the last moment: the signal is on its way, and comes when the clean-up is done.
    if (!ended && decided) semaphore_->wait(std::nullopt);
    const std::lock_guard lock(mutex_);
    return value_;
  }

  bool decided() const {
    const std::lock_guard lock(mutex_);
    return decided_;
  }

 private:
  void drop() {
    if (!decide()) DeliveryScope::signal(semaphore_);
  }

  /// From now on no outcome counts; true when there was one.
  bool decide() {
    const std::lock_guard lock(mutex_);
    return std::exchange(decided_, true);
  }

  const std::shared_ptr<Semaphore> semaphore_;
  mutable std::mutex mutex_;
  T value_;
  bool decided_ = false;
};

}  // namespace kwtsdk::internal
