#include "tools/traffic.h"

#include <atomic>
#include <cstddef>
#include <utility>

namespace kwtsdk::tool {
namespace {

using Observers = std::vector<std::shared_ptr<TrafficObserver>>;

/// Tells what is asked of a peripheral, and asks it.
class ObservedPeripheral final : public Peripheral {
 public:
  ObservedPeripheral(std::shared_ptr<Peripheral> peripheral, Observers observers)
      : peripheral_(std::move(peripheral)), observers_(std::move(observers)) {}

  PeripheralState state() const override { return peripheral_->state(); }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& forCharacteristic,
                  WriteType type) override {
    for (const auto& observer : observers_) observer->written(*forCharacteristic, value);
    peripheral_->writeValue(value, forCharacteristic, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& forCharacteristic) override {
    for (const auto& observer : observers_) observer->subscribed(*forCharacteristic, enabled);
    peripheral_->setNotifyValue(enabled, forCharacteristic);
  }
  std::size_t maximumWriteValueLengthForType(WriteType type) const override {
    return peripheral_->maximumWriteValueLengthForType(type);
  }

 private:
  const std::shared_ptr<Peripheral> peripheral_;
  const Observers observers_;
};

class ObservedLink final : public session::Link {
 public:
  ObservedLink(std::shared_ptr<session::Link> link, Observers observers)
      : link_(std::move(link)), observers_(std::move(observers)) {}

  void setEvents(Events events) override;
  MaybeError open() override;
  void close() override { link_->close(); }
  std::shared_ptr<Peripheral> peripheral() const override { return peripheral_; }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    return link_->characteristics();
  }

 private:
  const std::shared_ptr<session::Link> link_;
  const Observers observers_;
  const std::shared_ptr<std::atomic<bool>> isOpen_ = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<Peripheral> peripheral_;
};

void tellClosed(const Observers& observers) {
  for (const auto& observer : observers) observer->closed();
}

/// The session may be gone when they come, and this link with it: they hold what they need.
void ObservedLink::setEvents(Events events) {
  Events told;
  told.didWrite = [observers = observers_, next = std::move(events.didWrite)](
                      const std::shared_ptr<Peripheral>& peripheral,
                      const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
    for (const auto& observer : observers) observer->acknowledged(*characteristic, error);
    next(peripheral, characteristic, error);
  };
  told.didUpdate = [observers = observers_, next = std::move(events.didUpdate)](
                       const std::shared_ptr<Peripheral>& peripheral,
                       const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
    const auto value = characteristic->value();
    for (const auto& observer : observers) {
      if (value && !error) observer->notified(*characteristic, *value);
    }
    next(peripheral, characteristic, error);
  };
  // The link holds this, so this must not hold the link.
  told.didDisconnect = [observers = observers_, isOpen = isOpen_, weak = std::weak_ptr(link_),
                        next = std::move(events.didDisconnect)] {
    const auto link = weak.lock();
    const auto peripheral = link ? link->peripheral() : nullptr;
    // Told late, of a connection before the one that there is now.
    const bool isLate = peripheral != nullptr && peripheral->state() == PeripheralState::connected;
    if (!isLate && isOpen->exchange(false)) tellClosed(observers);
    next();
  };
  link_->setEvents(std::move(told));
}

MaybeError ObservedLink::open() {
  auto error = link_->open();
  const auto peripheral = link_->peripheral();
  if (error || peripheral == nullptr) return error;
  if (isOpen_->exchange(true)) tellClosed(observers_);  // the connection before
  peripheral_ = std::make_shared<ObservedPeripheral>(peripheral, observers_);
  for (const auto& observer : observers_) observer->opened(*peripheral, link_->characteristics());
  return error;
}

}  // namespace

TrafficObserver::~TrafficObserver() = default;

std::shared_ptr<session::Link> observed(std::shared_ptr<session::Link> link,
                                        std::vector<std::shared_ptr<TrafficObserver>> observers) {
  if (observers.empty()) return link;
  return std::make_shared<ObservedLink>(std::move(link), std::move(observers));
}

}  // namespace kwtsdk::tool
