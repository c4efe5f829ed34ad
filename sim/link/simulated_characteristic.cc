#include "sim/link/simulated_characteristic.h"

#include <utility>

#include "sim/model/wire.h"

namespace kwtsdk::sim {

std::optional<Bytes> SimulatedCharacteristic::value() const {
  const std::lock_guard lock(mutex_);
  return value_;
}

void SimulatedCharacteristic::setValue(Bytes value) {
  const std::lock_guard lock(mutex_);
  value_ = std::move(value);
}

std::vector<std::shared_ptr<SimulatedCharacteristic>> recorderCharacteristics() {
  using characteristic_property::notify;
  using characteristic_property::write;
  const auto make = [](Channel channel, std::string_view uuid, std::uint32_t properties) {
    return std::make_shared<SimulatedCharacteristic>(channel, Uuid::fromString(uuid).value(), properties);
  };
  return {make(Channel::status, wire::kStatusWrite, write),
          make(Channel::status, wire::kStatusNotify, notify),
          make(Channel::recorder, wire::kRecorderWrite, write),
          make(Channel::recorder, wire::kRecorderNotify, notify),
          make(Channel::firmware, wire::kFirmware, write | notify)};
}

}  // namespace kwtsdk::sim
