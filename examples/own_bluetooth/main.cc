// A host with a Bluetooth stack of its own; docs/bluetooth.md explains each operation.

#include <iostream>
#include <map>
#include <mutex>

#include <kwtsdk/kwtsdk.h>

#include "radio.h"

namespace {

class HostCharacteristic : public kwtsdk::Characteristic {
 public:
  HostCharacteristic(kwtsdk::Uuid uuid, std::uint32_t properties) : uuid_(uuid), properties_(properties) {}

  kwtsdk::Uuid UUID() const override { return uuid_; }
  std::uint32_t properties() const override { return properties_; }
  std::optional<kwtsdk::Bytes> value() const override {
    const std::lock_guard lock(mutex_);
    return value_;
  }
  void setValue(const kwtsdk::Bytes& value) {
    const std::lock_guard lock(mutex_);
    value_ = value;
  }

 private:
  const kwtsdk::Uuid uuid_;
  const std::uint32_t properties_;
  mutable std::mutex mutex_;
  std::optional<kwtsdk::Bytes> value_;
};

class HostPeripheral : public kwtsdk::Peripheral {
 public:
  explicit HostPeripheral(Radio& radio) : radio_(radio) {}

  kwtsdk::PeripheralState state() const override {
    return radio_.isConnected() ? kwtsdk::PeripheralState::connected : kwtsdk::PeripheralState::disconnected;
  }
  void writeValue(const kwtsdk::Bytes& value, const std::shared_ptr<kwtsdk::Characteristic>& target,
                  kwtsdk::WriteType) override {
    radio_.write(target->UUID().toString(), value);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<kwtsdk::Characteristic>& target) override {
    radio_.subscribe(target->UUID().toString(), enabled);
  }
  std::size_t maximumWriteValueLengthForType(kwtsdk::WriteType) const override { return radio_.mtu() - 3; }

 private:
  Radio& radio_;
};

using Characteristics = std::map<std::string, std::shared_ptr<HostCharacteristic>>;  // by UUID text

Characteristics discover(const Radio& radio) {
  namespace property = kwtsdk::characteristic_property;
  Characteristics characteristics;
  for (const auto& attribute : radio.discover()) {
    const auto uuid = kwtsdk::Uuid::fromString(attribute.uuid).value();
    characteristics[uuid.toString()] = std::make_shared<HostCharacteristic>(
        uuid, (attribute.writable ? property::write : 0) | (attribute.notifies ? property::notify : 0));
  }
  return characteristics;
}

/// Both events, on the stack's thread, in the order in which they happened.
void forwardEvents(Radio& radio, const std::shared_ptr<HostPeripheral>& peripheral,
                   const Characteristics& characteristics, kwtsdk::KWTBluetoothHelper& helper) {
  const auto of = [characteristics](const std::string& uuid) {
    return characteristics.at(kwtsdk::Uuid::fromString(uuid).value().toString());
  };
  radio.onWritten = [=, forward = helper.didWriteValueForCharacteristicBlock()](const auto& uuid,
                                                                                bool success) {
    const kwtsdk::Error failure("radio", 1, {{"NSLocalizedDescription", "The write failed"}});
    forward(peripheral, of(uuid), success ? kwtsdk::MaybeError() : failure);
  };
  radio.onNotified = [=, forward = helper.didUpdateValueForCharacteristicBlock()](const auto& uuid,
                                                                                  const auto& data) {
    of(uuid)->setValue(data);
    forward(peripheral, of(uuid), std::nullopt);
  };
}

}  // namespace

int main() {
  Radio radio;
  const auto peripheral = std::make_shared<HostPeripheral>(radio);
  const auto characteristics = discover(radio);
  const auto helper = kwtsdk::KWTBluetoothHelper::create();
  forwardEvents(radio, peripheral, characteristics, *helper);
  helper->setConnectedPeripheral(peripheral);
  for (const auto& [uuid, characteristic] : characteristics)
    helper->addDiscoveredCharacteristic(characteristic);

  const std::int64_t level = helper->getPower();
  std::cout << "battery level " << level << '\n';
  return level == 87 ? 0 : 1;
}
