#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "session/alarm.h"

namespace kwtsdk::session::detail {

/// How long a link is kept that nobody uses.
class KeptLink : public Expiring, public std::enable_shared_from_this<KeptLink> {
 public:
  /// `onOver` may be called on any thread, also when the link is used again: ask isOver().
  KeptLink(std::optional<Duration> idle, std::shared_ptr<Scheduler> scheduler, std::shared_ptr<Alarm> alarm,
           std::function<void()> onOver);

  bool isNever() const { return idle_ == Duration::zero(); }

  /// From now on nobody uses it; somebody does.
  void rest() KWT_EXCLUDES(mutex_);
  void use() KWT_EXCLUDES(mutex_);

  bool isOver() const KWT_EXCLUDES(mutex_);
  void expire() override { onOver_(); }

 private:
  const std::optional<Duration> idle_;
  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<Alarm> alarm_;
  const std::function<void()> onOver_;
  mutable internal::Mutex mutex_;
  std::optional<Duration> over_ KWT_GUARDED_BY(mutex_);
  std::optional<Alarm::Ticket> ticket_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::session::detail
