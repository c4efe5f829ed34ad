#pragma once

#include <memory>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "session/alarm.h"
#include "session/connection.h"
#include "session/job.h"

namespace kwtsdk::session::detail {

/// Ends the making of a link whose operation has to end. The link hears of that only between its own
/// beginning and end, and the one may be still to come: so it is told again and again. One that does not
/// listen costs its operation 5 s.
class OpeningEnd : public Expiring, public std::enable_shared_from_this<OpeningEnd> {
 public:
  OpeningEnd(std::shared_ptr<Connection> connection, std::shared_ptr<Scheduler> scheduler,
             std::shared_ptr<Alarm> alarm)
      : connection_(std::move(connection)), scheduler_(std::move(scheduler)), alarm_(std::move(alarm)) {}

  /// The operation is the one that is carried out. Any thread; returns at once.
  void demand(const std::shared_ptr<Job>& job) KWT_EXCLUDES(mutex_);

  void expire() override KWT_EXCLUDES(mutex_);

 private:
  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<Alarm> alarm_;
  internal::Mutex mutex_;
  std::weak_ptr<Job> job_ KWT_GUARDED_BY(mutex_);
  Duration since_ KWT_GUARDED_BY(mutex_){0};
};

}  // namespace kwtsdk::session::detail
