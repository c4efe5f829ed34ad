#pragma once

#include <mutex>
#include <utility>

#include <kwtsdk/peripheral.h>

#include "tools/host_link.h"

namespace kwtsdk::tool {

/// Who sees notifications before the facade. Outlives the link's owner, since the link's thread may.
class Observation {
 public:
  void set(HostLink::NotificationObserver observer) {
    const std::lock_guard lock(mutex_);
    observer_.swap(observer);
  }

  /// `forward`, after the observer has seen what it gets.
  static KWTBluetoothHelper::PeripheralEvent before(const std::shared_ptr<Observation>& observation,
                                                    KWTBluetoothHelper::PeripheralEvent forward) {
    return [observation, forward = std::move(forward)](const auto& peripheral, const auto& characteristic,
                                                       const MaybeError& error) {
      observation->show(*characteristic);
      forward(peripheral, characteristic, error);
    };
  }

 private:
  void show(const Characteristic& characteristic) {
    std::unique_lock lock(mutex_);
    const auto observer = observer_;
    lock.unlock();
    const auto value = characteristic.value();
    if (observer && value) observer(*value);
  }

  std::mutex mutex_;
  HostLink::NotificationObserver observer_;
};

}  // namespace kwtsdk::tool
