#include "session/kept_link.h"

#include <chrono>
#include <utility>

namespace kwtsdk::session::detail {

using internal::MutexLock;

KeptLink::KeptLink(std::optional<Duration> idle, std::shared_ptr<Scheduler> scheduler,
                   std::shared_ptr<Alarm> alarm, std::function<void()> onOver)
    : idle_(idle), scheduler_(std::move(scheduler)), alarm_(std::move(alarm)), onOver_(std::move(onOver)) {}

void KeptLink::rest() {
  constexpr Duration longest = std::chrono::hours(24 * 365);  // what is longer means for ever
  if (!idle_ || *idle_ >= longest) return;
  const Duration over = scheduler_->now() + *idle_;
  auto ticket = std::optional(alarm_->at(over, weak_from_this()));
  {
    const MutexLock lock(mutex_);
    over_ = over;
    ticket_.swap(ticket);
  }
  if (ticket) alarm_->takeBack(*ticket);
}

void KeptLink::use() {
  std::optional<Alarm::Ticket> ticket;
  {
    const MutexLock lock(mutex_);
    over_.reset();
    ticket_.swap(ticket);
  }
  if (ticket) alarm_->takeBack(*ticket);
}

bool KeptLink::isOver() const {
  const Duration now = scheduler_->now();
  const MutexLock lock(mutex_);
  return over_ && now >= *over_;
}

}  // namespace kwtsdk::session::detail
