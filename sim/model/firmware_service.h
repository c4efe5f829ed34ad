#pragma once

#include "sim/model/device_state.h"
#include "sim/model/service.h"

namespace kwtsdk::sim {

/// The version query, in frames that carry the magic "BEST".
class FirmwareService : public Service {
 public:
  explicit FirmwareService(const DeviceState& device) : device_(device) {}
  std::optional<Bytes> handle(const Bytes& frame) override;

 private:
  const DeviceState& device_;
};

}  // namespace kwtsdk::sim
