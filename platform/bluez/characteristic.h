#pragma once

#include <mutex>
#include <optional>
#include <utility>

#include <kwtsdk/peripheral.h>

#include "platform/bluez/objects.h"

namespace kwtsdk::bluez {

class BluezCharacteristic : public Characteristic {
 public:
  explicit BluezCharacteristic(Objects::Characteristic known) : known_(std::move(known)) {}

  Uuid UUID() const override { return known_.uuid; }
  std::uint32_t properties() const override { return known_.properties; }
  std::optional<Bytes> value() const override {
    const std::lock_guard lock(mutex_);
    return value_;
  }

  const std::string& path() const { return known_.path; }

  /// Whether BlueZ's object is the same one as when this was made.
  bool is(const Objects::Characteristic& other) const {
    return known_.path == other.path && known_.uuid == other.uuid && known_.properties == other.properties;
  }

  void setValue(Bytes value) {
    const std::lock_guard lock(mutex_);
    value_ = std::move(value);
  }

 private:
  const Objects::Characteristic known_;
  mutable std::mutex mutex_;
  std::optional<Bytes> value_;
};

}  // namespace kwtsdk::bluez
