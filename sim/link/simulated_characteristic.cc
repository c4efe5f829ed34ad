#include "sim/link/simulated_characteristic.h"

#include <utility>

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
  return {make(Channel::status, "CA2A", write), make(Channel::status, "C92A", notify),
          make(Channel::recorder, "4B1D9E07-53A6-42C8-B7F0-6E2A19820004", write),
          make(Channel::recorder, "4B1D9E07-53A6-42C8-B7F0-6E2A19820003", notify),
          make(Channel::firmware, "77777777-7777-7777-7777-777777777777", write | notify)};
}

}  // namespace kwtsdk::sim
