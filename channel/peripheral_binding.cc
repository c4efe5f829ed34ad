#include "channel/peripheral_binding.h"

#include <algorithm>
#include <utility>

#include "codec/hex.h"

namespace kwtsdk::internal {

PeripheralBinding::Registry PeripheralBinding::registry() const {
  const MutexLock lock(mutex_);
  return registry_;
}

void PeripheralBinding::setRegistry(Registry registry) {
  const MutexLock lock(mutex_);
  registry_.swap(registry);
}

void PeripheralBinding::add(std::shared_ptr<Characteristic> characteristic) {
  if (!characteristic) return;
  guardedCall(log_, "Characteristic::UUID", [&] {
    const Uuid uuid = characteristic->UUID();
    const MutexLock lock(mutex_);
    registry_[uuid].swap(characteristic);
  });
}

bool PeripheralBinding::connected() const {
  const auto current = peripheral();
  bool connected = false;
  guardedCall(log_, "Peripheral::state",
              [&] { connected = current && current->state() == PeripheralState::connected; });
  return connected;
}

std::size_t PeripheralBinding::longestWrite() const {
  const auto current = peripheral();
  std::size_t longest = 0;
  guardedCall(log_, "Peripheral::maximumWriteValueLengthForType", [&] {
    if (current) longest = current->maximumWriteValueLengthForType(WriteType::withResponse);
  });
  return longest;
}

std::shared_ptr<Characteristic> PeripheralBinding::find(const std::string& uuid,
                                                        std::uint32_t properties) const {
  const auto parsed = Uuid::fromString(uuid);
  if (!parsed) return nullptr;
  std::shared_ptr<Characteristic> characteristic;
  {
    const MutexLock lock(mutex_);
    const auto found = registry_.find(*parsed);
    if (found != registry_.end()) characteristic = found->second;
  }
  bool fits = false;
  guardedCall(log_, "Characteristic::properties",
              [&] { fits = characteristic && (characteristic->properties() & properties) == properties; });
  return fits ? characteristic : nullptr;
}

void PeripheralBinding::setNotify(bool enabled, const std::string& uuid) const {
  const auto characteristic = find(uuid, characteristic_property::notify);
  if (!characteristic) {
    log_.info("Characteristic not found: %@", uuid);
    return;
  }
  const auto current = peripheral();
  if (!current) return;
  guardedCall(log_, "Peripheral::setNotifyValue", [&] { current->setNotifyValue(enabled, characteristic); });
}

void PeripheralBinding::subscribe(const std::shared_ptr<Subscription>& subscription) {
  gate_.assertHeld();
  auto& known = subscriptions_[subscription->uuid];
  std::erase_if(known, [](const auto& other) { return other.expired(); });
  known.push_back(subscription);
  setNotify(true, subscription->uuid);
}

void PeripheralBinding::unsubscribe(const std::shared_ptr<Subscription>& subscription) {
  if (subscription->ended.exchange(true)) return;
  // Without memory for it they stay on, which does no harm.
  guardedCall(log_, "Unsubscribing", [&] {
    gate_.whenFree([this, subscription] {
      gate_.assertHeld();
      forget(*subscription);
    });
  });
}

void PeripheralBinding::forget(const Subscription& subscription) {
  auto& known = subscriptions_[subscription.uuid];
  auto own = std::ranges::find(known, &subscription, [](const auto& weak) { return weak.lock().get(); });
  if (own != known.end()) own = known.erase(own);
  const bool wanted = std::any_of(own, known.end(), [](const auto& weak) {
    const auto later = weak.lock();
    return later && later->counts && !later->ended;
  });
  if (!wanted) setNotify(false, subscription.uuid);
}

bool PeripheralBinding::write(const Bytes& frame,
                              const std::shared_ptr<Characteristic>& characteristic) const {
  const auto current = peripheral();
  return guardedCall(log_, "Peripheral::writeValue", [&] {
    if (current) current->writeValue(frame, characteristic, WriteType::withResponse);
  });
}

std::optional<std::string> PeripheralBinding::valueText(const Characteristic& characteristic,
                                                        bool* isKnown) const {
  std::optional<std::string> text;
  const bool isRead = guardedCall(log_, "Characteristic::value", [&] {
    if (const auto value = characteristic.value()) text = hexString(*value);
  });
  if (isKnown != nullptr) *isKnown = isRead;
  return text;
}

}  // namespace kwtsdk::internal
