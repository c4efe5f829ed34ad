#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/sim/recorder_model.h>

#include "sim/model/wire.h"

namespace kwtsdk::sim {

class SimulatedCharacteristic : public gatt::ValueCharacteristic {
 public:
  SimulatedCharacteristic(Channel channel, Uuid uuid, std::uint32_t properties)
      : ValueCharacteristic(uuid, properties), channel_(channel) {}

  Channel channel() const { return channel_; }
  bool has(std::uint32_t property) const { return (properties() & property) != 0; }

 private:
  const Channel channel_;
};

/// The recorder's characteristics: a pair for each channel, but one for the firmware's.
inline std::vector<std::shared_ptr<SimulatedCharacteristic>> recorderCharacteristics() {
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
