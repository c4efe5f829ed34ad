#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/bluetooth_helper.h>

#include "channel/gate.h"
#include "platform/posix/host_call.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

/// That somebody wants a characteristic's notifications.
struct Subscription {
  explicit Subscription(std::string characteristic) : uuid(std::move(characteristic)) {}

  const std::string uuid;
  std::atomic<bool> counts{true};  // false: whoever it was has been given up
  std::atomic<bool> ended{false};
};

/// The host's peripheral and characteristics, and who wants notifications of them. Calls into them are made
/// without a lock of this object's, and what they throw stops here. Any thread.
class PeripheralBinding {
 public:
  using Registry = KWTBluetoothHelper::Registry;

  PeripheralBinding(Gate& gate, Logger log) : gate_(gate), log_(std::move(log)) {}

  std::shared_ptr<Peripheral> peripheral() const { return peripheral_.get(); }
  void setPeripheral(std::shared_ptr<Peripheral> peripheral) { peripheral_.set(std::move(peripheral)); }

  Registry registry() const;
  void setRegistry(Registry registry);
  void add(std::shared_ptr<Characteristic> characteristic);

  bool connected() const;

  /// The most bytes of one write with response; 0 without a peripheral.
  std::size_t longestWrite() const;

  /// The registered characteristic with that UUID and all of these properties; null when there is none.
  std::shared_ptr<Characteristic> find(const std::string& uuid, std::uint32_t properties) const;

  void setNotify(bool enabled, const std::string& uuid) const;

  /// Switches notifications on. Under the gate.
  void subscribe(const std::shared_ptr<Subscription>& subscription);

  /// Switches them off, the first time, unless somebody who subscribed later and counts still wants them.
  /// Never waits.
  void unsubscribe(const std::shared_ptr<Subscription>& subscription);

  /// Starts a write with response; false when the peripheral threw.
  bool write(const Bytes& frame, const std::shared_ptr<Characteristic>& characteristic) const;

  /// The characteristic's value as hex text, none when it has none, or when that could not be told.
  std::optional<std::string> valueText(const Characteristic& characteristic, bool* isKnown = nullptr) const;

 private:
  void forget(const Subscription& subscription) KWT_REQUIRES(gate_);

  Gate& gate_;
  const Logger log_;
  SharedField<std::shared_ptr<Peripheral>> peripheral_;
  mutable Mutex mutex_;
  Registry registry_ KWT_GUARDED_BY(mutex_);
  // In the order in which they subscribed.
  std::map<std::string, std::vector<std::weak_ptr<Subscription>>> subscriptions_ KWT_GUARDED_BY(gate_);
};

}  // namespace kwtsdk::internal
