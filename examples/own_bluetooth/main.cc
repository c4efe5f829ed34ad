// A host with a Bluetooth stack of its own; docs/bluetooth.md explains each operation.

#include <iostream>
#include <unordered_map>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/kwtsdk.h>

#include "radio.h"

namespace {

class RadioPeripheral : public kwtsdk::Peripheral {
 public:
  explicit RadioPeripheral(Radio& radio) : radio_(radio) {}

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

}  // namespace

int main() {
  kwtsdk::gatt::EventForwarder events;  // these two outlive the radio's thread, which uses them
  std::unordered_map<kwtsdk::Uuid, std::shared_ptr<kwtsdk::gatt::ValueCharacteristic>> known;
  Radio radio;
  const auto peripheral = std::make_shared<RadioPeripheral>(radio);

  std::vector<std::shared_ptr<kwtsdk::Characteristic>> characteristics;
  for (const auto& [text, writable, notifies] : radio.discover()) {
    namespace property = kwtsdk::characteristic_property;
    const auto uuid = kwtsdk::Uuid::fromString(text).value();
    known[uuid] = std::make_shared<kwtsdk::gatt::ValueCharacteristic>(
        uuid, (writable ? property::write : 0) | (notifies ? property::notify : 0));
    characteristics.push_back(known[uuid]);
  }
  const auto of = [&known](const std::string& text) {
    return known.at(kwtsdk::Uuid::fromString(text).value());
  };

  // On the stack's thread, in the order in which things happened.
  radio.onWritten = [&events, peripheral, of](const std::string& uuid, bool success) {
    const kwtsdk::Error failure("radio", 1, {{"NSLocalizedDescription", "The write failed"}});
    events.didWrite(peripheral, of(uuid), success ? kwtsdk::MaybeError() : failure);
  };
  radio.onNotified = [&events, peripheral, of](const std::string& uuid, const Radio::Data& data) {
    of(uuid)->setValue(data);
    events.didUpdate(peripheral, of(uuid), std::nullopt);
  };

  const auto helper = kwtsdk::KWTBluetoothHelper::create();
  events.attach(helper, peripheral, characteristics);
  const std::int64_t level = helper->getPower();
  std::cout << "battery level " << level << '\n';
  return level == 87 ? 0 : 1;
}
