#include "channel/watchdog.h"

#include <utility>

#include "codec/error_codes.h"

namespace kwtsdk::internal {
namespace {

constexpr Duration kFirstCheck = std::chrono::seconds(1);
constexpr Duration kInterval = std::chrono::seconds(5);
constexpr Duration kLeeway = std::chrono::milliseconds(100);

}  // namespace

void Watchdog::start(const std::weak_ptr<void>& owner, ReplyHandler onTimeout) {
  written = false;
  const Self self = std::make_shared<SharedField<std::weak_ptr<Timer>>>();
  const auto timer = scheduler_.repeatingTimer(
      kFirstCheck, kInterval, kLeeway, [this, owner, self, onTimeout = std::move(onTimeout)] {
        const auto alive = owner.lock();
        if (!alive) return;
        guardedCall(log_, "The stall watchdog", [&] { check(self, onTimeout); });
      });
  self->set(timer);
  setTimer(timer);
}

void Watchdog::check(const Self& self, const ReplyHandler& onTimeout) {
  const auto own = self->get().lock();
  if (!own || own != timer() || written.exchange(false)) return;
  if (onTimeout) {
    guardedCall(log_, "A host callback", [&] { onTimeout(monitorTimeoutError(), std::nullopt); });
  }
  const auto stored = onTimeout ? timer() : own;  // also one that the callback started is stopped
  std::shared_ptr<Command> pending;
  std::shared_ptr<const ReplyHandler> receiver;  // destroyed without the gate
  {
    const Gate::Hold hold(gate_);
    // A download that has begun meanwhile has replaced the timer: what it stored is not this check's to
    // clear.
    if (stored != timer()) return;
    pending = dispatcher_.take();
    receiver = dispatcher_.receiver.exchange(nullptr);
    stop();
  }
  dispatcher_.giveUp(pending);
  log_.info("Timeout!");
}

void Watchdog::stop() {
  if (const auto timer = timer_.exchange(nullptr)) timer->cancel();
}

}  // namespace kwtsdk::internal
