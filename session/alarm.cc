#include "session/alarm.h"

#include <algorithm>
#include <chrono>

namespace kwtsdk::session::detail {

using internal::MutexLock;

Alarm::Ticket Alarm::at(Duration time, std::weak_ptr<Expiring> whose) {
  Ticket ticket;
  {
    const MutexLock lock(mutex_);
    ticket = {time, ++lastTicket_};
    if (isClosed_) return ticket;
    moments_.emplace(ticket, std::move(whose));
  }
  armForNext();
  return ticket;
}

void Alarm::takeBack(const Ticket& ticket) {
  std::weak_ptr<Expiring> released;
  const MutexLock lock(mutex_);
  const auto found = moments_.find(ticket);
  if (found == moments_.end()) return;
  released = std::move(found->second);
  moments_.erase(found);
}

void Alarm::close() {
  std::map<Ticket, std::weak_ptr<Expiring>> released;
  std::shared_ptr<Timer> timer;
  const MutexLock lock(mutex_);
  isClosed_ = true;
  released.swap(moments_);
  timer.swap(timer_);
}

void Alarm::armForNext() {
  Duration time{0};
  std::uint64_t arming = 0;
  {
    const MutexLock lock(mutex_);
    if (isClosed_ || moments_.empty() || moments_.begin()->first.first >= armedFor_) return;
    time = armedFor_ = moments_.begin()->first.first;
    arming = ++arming_;
  }
  arm(time, arming);
}

/// Without the lock: a timer may need a thread, and another may go on meanwhile.
void Alarm::arm(Duration time, std::uint64_t arming) {
  constexpr Duration never = std::chrono::hours(24);  // it fires once
  std::shared_ptr<Timer> timer;
  const bool isArmed = internal::guardedCall(log_, "The timer of a session", [&] {
    const Duration first = std::max(time - scheduler_->now(), Duration::zero());
    timer = scheduler_->repeatingTimer(first, never, Duration::zero(), [weak = weak_from_this(), arming] {
      if (const auto self = weak.lock()) self->fire(arming);
    });
  });
  const MutexLock lock(mutex_);
  if (arming_ != arming || isClosed_) return;  // the timer, no longer wanted, goes after the lock
  if (isArmed) timer_.swap(timer);
  if (!isArmed) armedFor_ = Duration::max();
}

void Alarm::fire(std::uint64_t arming) {
  std::shared_ptr<Timer> fired;
  {
    const MutexLock lock(mutex_);
    if (arming_ == arming) {
      ++arming_;  // it may fire before it is stored
      fired.swap(timer_);
      armedFor_ = Duration::max();
    }
  }
  if (fired) fired->cancel();
  while (const auto due = takeDue().lock()) {
    internal::guardedCall(log_, "What expires", [&] { due->expire(); });
  }
  armForNext();
}

std::weak_ptr<Expiring> Alarm::takeDue() {
  const Duration now = scheduler_->now();
  const MutexLock lock(mutex_);
  while (!moments_.empty() && moments_.begin()->first.first <= now) {
    auto due = std::move(moments_.begin()->second);
    moments_.erase(moments_.begin());
    if (!due.expired()) return due;
  }
  return {};
}

}  // namespace kwtsdk::session::detail
