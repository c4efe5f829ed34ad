#pragma once

#include <memory>
#include <utility>

#include "sim/link/link_core.h"

namespace kwtsdk::sim {

/// The recorder as the host's Bluetooth stack shows it.
class SimulatedPeripheral : public Peripheral {
 public:
  explicit SimulatedPeripheral(std::shared_ptr<LinkCore> core) : core_(std::move(core)) {}

  PeripheralState state() const override { return core_->state(); }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& forCharacteristic,
                  WriteType type) override {
    core_->write(value, forCharacteristic, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& forCharacteristic) override {
    core_->setNotify(enabled, forCharacteristic);
  }
  std::size_t maximumWriteValueLengthForType(WriteType type) const override {
    return core_->longestWrite(type);
  }

 private:
  const std::shared_ptr<LinkCore> core_;
};

}  // namespace kwtsdk::sim
