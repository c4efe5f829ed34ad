#include "channel/link.h"

#include <utility>

#include "channel/host_call.h"
#include "codec/hex.h"

namespace kwtsdk::internal {

std::shared_ptr<Peripheral> Link::peripheral() const {
  const std::lock_guard lock(mutex_);
  return peripheral_;
}

void Link::setPeripheral(std::shared_ptr<Peripheral> peripheral) {
  const std::lock_guard lock(mutex_);
  peripheral_.swap(peripheral);
}

Link::Registry Link::registry() const {
  const std::lock_guard lock(mutex_);
  return registry_;
}

void Link::setRegistry(Registry registry) {
  const std::lock_guard lock(mutex_);
  registry_.swap(registry);
}

void Link::add(std::shared_ptr<Characteristic> characteristic) {
  if (!characteristic) return;
  guardedCall(log_, "Characteristic::UUID", [&] {
    const Uuid uuid = characteristic->UUID();
    const std::lock_guard lock(mutex_);
    registry_[uuid].swap(characteristic);
  });
}

bool Link::connected() const {
  const auto current = peripheral();
  bool connected = false;
  guardedCall(log_, "Peripheral::state",
              [&] { connected = current && current->state() == PeripheralState::connected; });
  return connected;
}

void Link::setNotify(bool enabled, const std::string& uuid) const {
  const auto characteristic = find(uuid, characteristic_property::notify);
  if (!characteristic) {
    log_.info("Characteristic not found: %@", uuid);
    return;
  }
  const auto current = peripheral();
  if (!current) return;
  guardedCall(log_, "Peripheral::setNotifyValue", [&] { current->setNotifyValue(enabled, characteristic); });
}

std::shared_ptr<Characteristic> Link::find(const std::string& uuid, std::uint32_t properties) const {
  const auto parsed = Uuid::fromString(uuid);
  if (!parsed) return nullptr;
  std::shared_ptr<Characteristic> characteristic;
  {
    const std::lock_guard lock(mutex_);
    const auto found = registry_.find(*parsed);
    if (found != registry_.end()) characteristic = found->second;
  }
  bool fits = false;
  guardedCall(log_, "Characteristic::properties",
              [&] { fits = characteristic && (characteristic->properties() & properties) == properties; });
  return fits ? characteristic : nullptr;
}

bool Link::write(const Bytes& frame, const std::shared_ptr<Characteristic>& characteristic) const {
  const auto current = peripheral();
  return guardedCall(log_, "Peripheral::writeValue", [&] {
    if (current) current->writeValue(frame, characteristic, WriteType::withResponse);
  });
}

std::optional<std::string> Link::valueText(const Characteristic& characteristic) const {
  std::optional<std::string> text;
  guardedCall(log_, "Characteristic::value", [&] {
    if (const auto value = characteristic.value()) text = hexString(*value);
  });
  return text;
}

}  // namespace kwtsdk::internal
