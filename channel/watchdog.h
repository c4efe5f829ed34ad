#pragma once

#include <atomic>
#include <memory>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/scheduler.h>

#include "channel/dispatcher.h"
#include "channel/gate.h"
#include "platform/posix/host_call.h"

namespace kwtsdk::internal {

/// Ends a stream whose data stops coming. It outlives a finished download until its next check without data,
/// and then clears what is pending: hosts that go on at once call stop.
class Watchdog {
 public:
  Watchdog(Scheduler& scheduler, Gate& gate, Dispatcher& dispatcher, Logger log)
      : scheduler_(scheduler), gate_(gate), dispatcher_(dispatcher), log_(std::move(log)) {}

  /// `owner` keeps this object alive while a check runs; once it is gone, checks do nothing.
  void start(const std::weak_ptr<void>& owner, ReplyHandler onTimeout);
  void stop();

  std::shared_ptr<Timer> timer() const { return timer_.get(); }

  /// A timer that is replaced has no effect any more.
  void setTimer(std::shared_ptr<Timer> timer) { timer_.set(std::move(timer)); }

  std::atomic<bool> written{false};

 private:
  using Self = std::shared_ptr<SharedField<std::weak_ptr<Timer>>>;
  void check(const Self& self, const ReplyHandler& onTimeout);

  Scheduler& scheduler_;
  Gate& gate_;
  Dispatcher& dispatcher_;
  const Logger log_;
  SharedField<std::shared_ptr<Timer>> timer_;
};

}  // namespace kwtsdk::internal
