#pragma once

#include <memory>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {

/// The device as the library knows it.
class BluezPeripheral : public Peripheral {
 public:
  explicit BluezPeripheral(std::shared_ptr<DeviceCore> core) : core_(std::move(core)) {}

  PeripheralState state() const override { return core_->state(); }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& forCharacteristic,
                  WriteType type) override {
    core_->write(value, forCharacteristic, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& forCharacteristic) override {
    core_->setNotify(enabled, forCharacteristic);
  }
  std::size_t maximumWriteValueLengthForType(WriteType) const override { return core_->longestWrite(); }

 private:
  const std::shared_ptr<DeviceCore> core_;
};

}  // namespace kwtsdk::bluez
