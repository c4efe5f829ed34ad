#include "channel/watchdog.h"

#include <utility>

#include "channel/host_call.h"
#include "codec/error_codes.h"

namespace kwtsdk::internal {
namespace {

constexpr Duration kFirstCheck = std::chrono::seconds(1);
constexpr Duration kInterval = std::chrono::seconds(5);
constexpr Duration kLeeway = std::chrono::milliseconds(100);

}  // namespace

void Watchdog::start(const std::weak_ptr<void>& owner, ReplyHandler onTimeout) {
  written = false;
  const Self self = std::make_shared<std::weak_ptr<Timer>>();
  const auto timer = scheduler_.repeatingTimer(kFirstCheck, kInterval, kLeeway,
                                               [this, owner, self, onTimeout = std::move(onTimeout)] {
                                                 if (const auto alive = owner.lock()) check(self, onTimeout);
                                               });
  std::shared_ptr<Timer> replaced = timer;  // destroyed, and so cancelled, outside the lock
  const std::lock_guard lock(mutex_);
  *self = timer;
  timer_.swap(replaced);
}

void Watchdog::check(const Self& self, const ReplyHandler& onTimeout) {
  std::shared_ptr<Timer> own;
  CallbackSlot::Generation pending = 0, stream = 0;
  {
    const std::lock_guard lock(mutex_);
    own = self->lock();
    if (!own || own != timer_ || written.exchange(false)) return;
    // A download that begins from here on replaces this timer: what it stores is not this check's to clear.
    pending = dispatcher_.pending.generation();
    stream = dispatcher_.stream.generation();
  }
  callHost(log_, onTimeout, monitorTimeoutError(), std::nullopt);
  dispatcher_.pending.clearUpTo(pending);
  dispatcher_.stream.clearUpTo(stream);
  stopIfStored(own);
  log_.info("Timeout!");
}

void Watchdog::stop() { stopIfStored(timer()); }

void Watchdog::stopIfStored(const std::shared_ptr<Timer>& timer) {
  {
    const std::lock_guard lock(mutex_);
    if (!timer || timer != timer_) return;
    timer_ = nullptr;
  }
  timer->cancel();
}

std::shared_ptr<Timer> Watchdog::timer() const {
  const std::lock_guard lock(mutex_);
  return timer_;
}

void Watchdog::setTimer(std::shared_ptr<Timer> timer) {
  const std::lock_guard lock(mutex_);
  timer_.swap(timer);
}

}  // namespace kwtsdk::internal
