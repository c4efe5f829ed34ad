#pragma once

#include "sim/model/device_state.h"
#include "sim/model/service.h"

namespace kwtsdk::sim {

/// Battery and capacity, in frames that begin 99 EC.
class StatusService : public Service {
 public:
  explicit StatusService(const DeviceState& device) : device_(device) {}
  std::optional<Bytes> handle(const Bytes& frame) override;

 private:
  const DeviceState& device_;
};

}  // namespace kwtsdk::sim
