#pragma once

#include <cstdint>
#include <memory>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// What the services share.
struct DeviceState {
  std::shared_ptr<RecordingStore> store;
  std::uint32_t batteryLevel = 80;
  Bytes version = {0, 1, 2, 3};
  std::uint16_t totalBlocks = 16384;
  bool alwaysEndMarker = false;
};

}  // namespace kwtsdk::sim
