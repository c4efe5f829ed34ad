#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/recording_store.h>

#include "sim/model/firmware_state.h"
#include "sim/model/silent_microphone.h"

namespace kwtsdk::sim {

/// What the services share.
struct DeviceState {
  std::shared_ptr<RecordingStore> store;
  std::uint32_t batteryLevel = 80;
  std::uint16_t totalBlocks = 16384;
  bool alwaysEndMarker = false;
  FirmwareState firmware;

  std::shared_ptr<Microphone> microphone = std::make_shared<SilentMicrophone>();
  bool inCall = false;
  std::optional<Duration> keyAfter, callAfter;  // of recorded sound
};

}  // namespace kwtsdk::sim
