#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/firmware_update.h>
#include <kwtsdk/sim/link_timing.h>
#include <kwtsdk/sim/microphone.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// One group of commands on one channel.
class Service {
 public:
  virtual ~Service() = default;

  /// The answer to a frame; none for one that is malformed, that needs no answer or that is another
  /// service's.
  virtual std::optional<Bytes> handle(const Bytes& frame) = 0;

  /// What the service sends of its own accord after a command, packet by packet as the link takes it.
  virtual bool streaming() const { return false; }
  virtual std::optional<Bytes> nextPacket() { return std::nullopt; }

  /// The frame that started the stream.
  virtual Bytes streamRequest() const { return {}; }

  virtual void linkLost() {}
};

class SilentMicrophone : public Microphone {
 public:
  void start() override {}

  // CELT, wideband, one frame of 20 ms, mono; the first bit of the frame says that it is silent.
  Bytes nextPacket() override { return {0xB8, 0xFF, 0xFE}; }
};

/// The firmware's part of what the services share.
struct FirmwareState {
  Bytes version = {0, 1, 2, 3};
  std::optional<Bytes> image;
  FirmwareSlot slot;
  FirmwareStaging staging;

  std::size_t linkMtu = LinkTiming{}.mtu;
  std::optional<std::uint16_t> updateMtu;
  std::vector<UpdateTrouble> troubles;
  std::optional<ResumeVerification> lastResume;
};

/// What the services share.
struct DeviceState {
  std::shared_ptr<RecordingStore> store;
  std::uint32_t batteryLevel = 80;
  std::uint16_t totalBlocks = 16384;
  bool alwaysEndMarker = false;
  FirmwareState firmware;

  std::shared_ptr<Microphone> microphone = std::make_shared<SilentMicrophone>();
  bool inCall = false;
  RecordingEnds recordingEnds;
};

}  // namespace kwtsdk::sim
