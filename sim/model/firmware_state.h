#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/firmware_update.h>
#include <kwtsdk/sim/link_timing.h>

namespace kwtsdk::sim {

/// The firmware's part of what the services share.
struct FirmwareState {
  Bytes version = {0, 1, 2, 3};
  std::optional<Bytes> image;
  FirmwareSlot slot;

  std::size_t linkMtu = LinkTiming{}.mtu;
  std::optional<std::uint16_t> updateMtu;
  std::vector<UpdateTrouble> troubles;
  std::optional<ResumeVerification> lastResume;
};

}  // namespace kwtsdk::sim
