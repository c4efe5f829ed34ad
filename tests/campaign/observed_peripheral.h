#pragma once

#include <memory>
#include <unordered_set>
#include <utility>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace kwtsdk::campaign {

/// Passes everything on, gives way around it, and counts the subscriptions asked for at this moment.
class ObservedPeripheral : public gatt::ForwardingPeripheral {
 public:
  ObservedPeripheral(sim::VirtualTimeScheduler& scheduler, std::shared_ptr<Peripheral> peripheral)
      : ForwardingPeripheral(std::move(peripheral)), scheduler_(scheduler) {}

  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
    scheduler_.preemptionPoint();
    ForwardingPeripheral::writeValue(value, to, type);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
    scheduler_.preemptionPoint();
    if (enabled) {
      on_.insert(of->UUID());
    } else {
      on_.erase(of->UUID());
    }
    ForwardingPeripheral::setNotifyValue(enabled, of);
    scheduler_.preemptionPoint();
  }
  bool subscribed() const { return !on_.empty(); }

 private:
  sim::VirtualTimeScheduler& scheduler_;
  std::unordered_set<Uuid> on_;
};

}  // namespace kwtsdk::campaign
