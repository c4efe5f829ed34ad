#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include <kwtsdk/bluetooth_helper.h>

#include "channel/logger.h"

namespace kwtsdk::internal {

/// The host's peripheral and characteristics. Calls into them are made without a lock held here, and what
/// they throw stops here. Any thread.
class Link {
 public:
  using Registry = KWTBluetoothHelper::Registry;

  explicit Link(Logger log) : log_(std::move(log)) {}

  std::shared_ptr<Peripheral> peripheral() const;
  void setPeripheral(std::shared_ptr<Peripheral> peripheral);

  Registry registry() const;
  void setRegistry(Registry registry);
  void add(std::shared_ptr<Characteristic> characteristic);

  bool connected() const;
  void setNotify(bool enabled, const std::string& uuid) const;

  /// The registered characteristic with that UUID and all of these properties; null when there is none.
  std::shared_ptr<Characteristic> find(const std::string& uuid, std::uint32_t properties) const;

  /// Starts a write with response; false when the peripheral threw.
  bool write(const Bytes& frame, const std::shared_ptr<Characteristic>& characteristic) const;

  /// The characteristic's value as hex text, none when it has none.
  std::optional<std::string> valueText(const Characteristic& characteristic) const;

 private:
  const Logger log_;
  mutable std::mutex mutex_;
  std::shared_ptr<Peripheral> peripheral_;
  Registry registry_;
};

}  // namespace kwtsdk::internal
