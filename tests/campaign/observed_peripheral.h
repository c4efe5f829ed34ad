#pragma once

#include <memory>
#include <unordered_set>
#include <utility>

#include <kwtsdk/peripheral.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace kwtsdk::campaign {

/// Passes everything on, gives way around it, and counts the subscriptions asked for at this moment.
class ObservedPeripheral : public Peripheral {
 public:
  ObservedPeripheral(sim::VirtualTimeScheduler& scheduler, std::shared_ptr<Peripheral> peripheral)
      : scheduler_(scheduler), peripheral_(std::move(peripheral)) {}

  PeripheralState state() const override { return peripheral_->state(); }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
    scheduler_.preemptionPoint();
    peripheral_->writeValue(value, to, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
    scheduler_.preemptionPoint();
    if (enabled) {
      on_.insert(of->UUID());
    } else {
      on_.erase(of->UUID());
    }
    peripheral_->setNotifyValue(enabled, of);
    scheduler_.preemptionPoint();
  }
  std::size_t maximumWriteValueLengthForType(WriteType type) const override {
    return peripheral_->maximumWriteValueLengthForType(type);
  }

  bool subscribed() const { return !on_.empty(); }

 private:
  sim::VirtualTimeScheduler& scheduler_;
  const std::shared_ptr<Peripheral> peripheral_;
  std::unordered_set<Uuid> on_;
};

}  // namespace kwtsdk::campaign
