#pragma once

#include "sim/model/firmware_state.h"
#include "sim/model/service.h"

namespace kwtsdk::sim {

/// The version query, in frames that carry the magic "BEST".
class FirmwareService : public Service {
 public:
  explicit FirmwareService(const FirmwareState& firmware) : firmware_(firmware) {}
  std::optional<Bytes> handle(const Bytes& frame) override;

 private:
  const FirmwareState& firmware_;
};

}  // namespace kwtsdk::sim
