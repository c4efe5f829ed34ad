#pragma once

#include <mutex>

#include <kwtsdk/peripheral.h>
#include <kwtsdk/sim/recorder_model.h>

namespace kwtsdk::sim {

class SimulatedCharacteristic : public Characteristic {
 public:
  SimulatedCharacteristic(Channel channel, Uuid uuid, std::uint32_t properties)
      : channel_(channel), uuid_(uuid), properties_(properties) {}

  Uuid UUID() const override { return uuid_; }
  std::uint32_t properties() const override { return properties_; }
  std::optional<Bytes> value() const override;

  Channel channel() const { return channel_; }
  bool has(std::uint32_t property) const { return (properties_ & property) != 0; }
  void setValue(Bytes value);

 private:
  const Channel channel_;
  const Uuid uuid_;
  const std::uint32_t properties_;
  mutable std::mutex mutex_;
  std::optional<Bytes> value_;
};

/// The recorder's characteristics: a pair for each channel, but one for the firmware's.
std::vector<std::shared_ptr<SimulatedCharacteristic>> recorderCharacteristics();

}  // namespace kwtsdk::sim
