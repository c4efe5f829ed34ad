#include <kwtsdk/gatt/peripheral.h>

#include <utility>

#include "platform/threads/mutex.h"

namespace kwtsdk::gatt {

std::optional<std::string> addressIn(std::string_view text) {
  constexpr std::string_view form = "xx:xx:xx:xx:xx:xx", digits = "0123456789ABCDEFabcdef";
  constexpr std::size_t decimalAndUpper = 16;
  if (text.size() != form.size()) return std::nullopt;
  std::string address(text);
  for (std::size_t i = 0; i < form.size(); ++i) {
    if (form[i] == ':' && text[i] == ':') continue;
    const std::size_t digit = digits.find(text[i]);
    if (form[i] == ':' || digit == std::string_view::npos) return std::nullopt;
    address[i] = digits[digit < decimalAndUpper ? digit : digit - 6];
  }
  return address;
}

struct ValueCharacteristic::Value : internal::SharedField<std::optional<Bytes>> {};

ValueCharacteristic::ValueCharacteristic(Uuid uuid, std::uint32_t properties)
    : uuid_(uuid), properties_(properties), value_(std::make_unique<Value>()) {}
ValueCharacteristic::~ValueCharacteristic() = default;

std::optional<Bytes> ValueCharacteristic::value() const { return value_->get(); }
void ValueCharacteristic::setValue(std::optional<Bytes> value) { value_->set(std::move(value)); }

ForwardingPeripheral::ForwardingPeripheral(std::shared_ptr<Peripheral> to) : to_(std::move(to)) {}
ForwardingPeripheral::~ForwardingPeripheral() = default;

PeripheralState ForwardingPeripheral::state() const { return to_->state(); }

void ForwardingPeripheral::writeValue(const Bytes& value,
                                      const std::shared_ptr<Characteristic>& forCharacteristic,
                                      WriteType type) {
  to_->writeValue(value, forCharacteristic, type);
}

void ForwardingPeripheral::setNotifyValue(bool enabled,
                                          const std::shared_ptr<Characteristic>& forCharacteristic) {
  to_->setNotifyValue(enabled, forCharacteristic);
}

std::size_t ForwardingPeripheral::maximumWriteValueLengthForType(WriteType type) const {
  return to_->maximumWriteValueLengthForType(type);
}

struct EventForwarder::State {
  struct Events {
    Event didWrite, didUpdate;
  };
  struct Attached {
    std::weak_ptr<KWTBluetoothHelper> facade;
    std::weak_ptr<Peripheral> peripheral;
  };
  internal::SharedField<std::shared_ptr<const Events>> events;
  internal::SharedField<std::shared_ptr<const std::function<void()>>> onDisconnect;
  internal::SharedField<Attached> attached;

  void tell(Event Events::*event, const std::shared_ptr<Peripheral>& peripheral,
            const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) const {
    const auto set = events.get();
    if (set && (*set).*event) ((*set).*event)(peripheral, characteristic, error);
  }
};

EventForwarder::EventForwarder() : state_(std::make_unique<State>()) {}
EventForwarder::~EventForwarder() = default;

void EventForwarder::setEvents(Event didWrite, Event didUpdate) {
  const bool isAny = didWrite || didUpdate;  // taking them back is part of a link's end, which must not fail
  state_->events.set(
      isAny ? std::make_shared<const State::Events>(State::Events{std::move(didWrite), std::move(didUpdate)})
            : nullptr);
}

void EventForwarder::setOnDisconnect(std::function<void()> onDisconnect) {
  state_->onDisconnect.set(
      onDisconnect ? std::make_shared<const std::function<void()>>(std::move(onDisconnect)) : nullptr);
}

void EventForwarder::attach(const std::shared_ptr<KWTBluetoothHelper>& facade,
                            const std::shared_ptr<Peripheral>& peripheral,
                            const std::vector<std::shared_ptr<Characteristic>>& characteristics) {
  facade->setConnectedPeripheral(peripheral);
  for (const auto& characteristic : characteristics) facade->addDiscoveredCharacteristic(characteristic);
  state_->attached.set({facade, peripheral});
  setEvents(facade->didWriteValueForCharacteristicBlock(), facade->didUpdateValueForCharacteristicBlock());
}

void EventForwarder::detach() {
  setEvents(nullptr, nullptr);
  const auto [weakFacade, peripheral] = state_->attached.get();
  const auto facade = weakFacade.lock();
  if (!facade || facade->connectedPeripheral() != peripheral.lock()) return;
  facade->setConnectedPeripheral(nullptr);
  facade->setDiscoveredCharacteristics({});
}

void EventForwarder::didWrite(const std::shared_ptr<Peripheral>& peripheral,
                              const std::shared_ptr<Characteristic>& characteristic,
                              const MaybeError& error) const {
  state_->tell(&State::Events::didWrite, peripheral, characteristic, error);
}

void EventForwarder::didUpdate(const std::shared_ptr<Peripheral>& peripheral,
                               const std::shared_ptr<Characteristic>& characteristic,
                               const MaybeError& error) const {
  state_->tell(&State::Events::didUpdate, peripheral, characteristic, error);
}

void EventForwarder::didDisconnect() const {
  if (const auto onDisconnect = state_->onDisconnect.get()) (*onDisconnect)();
}

}  // namespace kwtsdk::gatt
