#include "session/opening_end.h"

#include <algorithm>
#include <chrono>

namespace kwtsdk::session::detail {

using internal::MutexLock;

void OpeningEnd::demand(const std::shared_ptr<Job>& job) {
  {
    const Duration now = scheduler_->now();
    const MutexLock lock(mutex_);
    job_ = job;
    since_ = std::max(now, job->state().shield());
  }
  expire();
}

void OpeningEnd::expire() {
  constexpr Duration step = std::chrono::milliseconds(20), longest = std::chrono::seconds(5);
  std::shared_ptr<Job> job;
  Duration since{0};
  {
    const MutexLock lock(mutex_);
    job = job_.lock();
    since = since_;
  }
  const auto reason = job ? job->state().interruption() : std::nullopt;
  if (!reason || job->state().done() || !connection_->isOpening()) return;
  const Duration now = scheduler_->now();
  if (now < since) {
    alarm_->at(since, weak_from_this());
    return;
  }
  connection_->interruptOpening();
  if (now - since >= longest) return job->interrupted(*reason);
  alarm_->at(now + step, weak_from_this());
}

}  // namespace kwtsdk::session::detail
