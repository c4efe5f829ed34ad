#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/posix/host_call.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::session::detail {

/// Whose time can come.
class Expiring {
 public:
  virtual ~Expiring() = default;

  /// On a thread of the scheduler's. Must not block.
  virtual void expire() = 0;
};

/// Many moments, one timer. It is armed for the earliest and left armed when that is taken back: an operation
/// that ends in time, as nearly all do, costs no timer.
class Alarm : public std::enable_shared_from_this<Alarm> {
 public:
  using Ticket = std::pair<Duration, std::uint64_t>;

  Alarm(std::shared_ptr<Scheduler> scheduler, const internal::Logger& log)
      : scheduler_(std::move(scheduler)), log_(log) {}

  /// Where no timer can be had, nothing expires until the next call finds one.
  Ticket at(Duration time, std::weak_ptr<Expiring> whose) KWT_EXCLUDES(mutex_);
  void takeBack(const Ticket& ticket) KWT_EXCLUDES(mutex_);

  /// Nothing expires any more.
  void close() KWT_EXCLUDES(mutex_);

 private:
  void arm(Duration time, std::uint64_t arming);
  void fire(std::uint64_t arming);
  std::weak_ptr<Expiring> takeDue() KWT_EXCLUDES(mutex_);
  void armForNext() KWT_EXCLUDES(mutex_);

  const std::shared_ptr<Scheduler> scheduler_;
  const internal::Logger log_;
  internal::Mutex mutex_;
  std::map<Ticket, std::weak_ptr<Expiring>> moments_ KWT_GUARDED_BY(mutex_);
  std::uint64_t lastTicket_ KWT_GUARDED_BY(mutex_) = 0;
  std::uint64_t arming_ KWT_GUARDED_BY(mutex_) = 0;  // what the timer was armed as
  std::shared_ptr<Timer> timer_ KWT_GUARDED_BY(mutex_);
  Duration armedFor_ KWT_GUARDED_BY(mutex_) = Duration::max();
  bool isClosed_ KWT_GUARDED_BY(mutex_) = false;
};

}  // namespace kwtsdk::session::detail
