#include <kwtsdk/bluez/device.h>

#include <utility>

#include "platform/bluez/peripheral.h"

namespace kwtsdk::bluez {

class Device::Impl {
 public:
  explicit Impl(std::shared_ptr<DeviceCore> deviceCore)
      : core(std::move(deviceCore)), peripheral(std::make_shared<BluezPeripheral>(core)) {
    core->setPeripheral(peripheral);
  }

  const std::shared_ptr<DeviceCore> core;
  const std::shared_ptr<BluezPeripheral> peripheral;
};

std::shared_ptr<Device> Device::create(std::shared_ptr<Scheduler> scheduler, std::string address,
                                       std::string adapter) {
  auto core = std::make_shared<DeviceCore>(std::move(scheduler), std::move(address), std::move(adapter));
  return std::shared_ptr<Device>(new Device(std::make_unique<Impl>(std::move(core))));
}

bool Device::isAddress(std::string_view text) {
  constexpr std::size_t length = 17;
  if (text.size() != length) return false;
  for (std::size_t i = 0; i < length; ++i) {
    const bool right =
        i % 3 == 2 ? text[i] == ':'
                   : std::string_view("0123456789ABCDEFabcdef").find(text[i]) != std::string_view::npos;
    if (!right) return false;
  }
  return true;
}

Device::Device(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Device::~Device() { impl_->core->close(); }

MaybeError Device::connect(const ConnectOptions& options) {
  const auto core = impl_->core;  // onStep may end the device
  return core->connect(options);
}
void Device::disconnect() { impl_->core->disconnect(); }

std::shared_ptr<Peripheral> Device::peripheral() const { return impl_->peripheral; }

std::vector<std::shared_ptr<Characteristic>> Device::characteristics() const {
  const auto all = impl_->core->characteristics();
  return {all.begin(), all.end()};
}

void Device::setEvents(Event didWrite, Event didUpdate) {
  impl_->core->setEvents({std::move(didWrite), std::move(didUpdate)});
}

void Device::setOnDisconnect(std::function<void()> onDisconnect) {
  impl_->core->setOnDisconnect(std::move(onDisconnect));
}

void Device::attach(const std::shared_ptr<KWTBluetoothHelper>& facade) {
  facade->setConnectedPeripheral(impl_->peripheral);
  for (const auto& characteristic : characteristics()) facade->addDiscoveredCharacteristic(characteristic);
  setEvents(facade->didWriteValueForCharacteristicBlock(), facade->didUpdateValueForCharacteristicBlock());
}

}  // namespace kwtsdk::bluez
