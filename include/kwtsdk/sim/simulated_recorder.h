#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/sim/firmware_update.h>
#include <kwtsdk/sim/link_timing.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/scripted_faults.h>
#include <kwtsdk/sim/simulated_link.h>

namespace kwtsdk::sim {

/// How a recorder and its link behave, as a text says it: the fault lines of ScriptedFaults and
///   latency 5ms
///   interval 7.5ms
///   packets 4
///   mtu 247
///   battery 12  its level
///   key 3s  what ends each recording that long into it, one line for each of RecordingEnds
///   call    in a call from the beginning
///   update refuse STEP  in each firmware update: prepare, partition, configuration, check [NUMBER] or bye
///   update silent STEP  the same, and resume and begin; NUMBER counts from 1, which it is when left out
///   update mtu 100      the MTU that updates are offered, 0 to 65535
struct DeviceScript : RecordingEnds {
  LinkTiming timing;
  std::shared_ptr<ScriptedFaults> faults = std::make_shared<ScriptedFaults>();
  bool inCall = false;
  std::optional<std::uint32_t> battery;
  std::vector<UpdateTrouble> updateTroubles;
  std::optional<std::uint16_t> updateMtu;
};

/// Throws std::runtime_error naming the line that cannot be read.
KWTSDK_EXPORT DeviceScript parseDeviceScript(std::string_view text);

/// A recorder whose store is a folder, ready to attach.
struct SimulatedRecorder {
  std::shared_ptr<RecorderModel> model;
  std::shared_ptr<SimulatedLink> link;
  std::vector<std::string> warnings{};  // FolderStore::warnings()
  bool hears = false;                   // libkwtsdk_sim_sound is installed
};

/// Opens the folder as FolderStore does; recorder and link follow `device/script` below it where that exists.
/// `adjust`, unless empty, may change the link's timing that the script gave, and is called before this
/// returns. An update leaves its image in `device/firmware.bin`, which the recorder starts with from then on.
/// It hears `device/microphone.wav` (16-bit PCM, mono or stereo, at 8, 12, 16, 24 or 48 kHz), or else a
/// melody, over and over. Where libkwtsdk_sim_sound is not installed it hears nothing. Throws
/// std::runtime_error whose text says what to do.
KWTSDK_EXPORT SimulatedRecorder
openSimulatedRecorder(const std::shared_ptr<Scheduler>& scheduler, const std::filesystem::path& folder,
                      const std::function<void(LinkTiming&)>& adjust = nullptr);

}  // namespace kwtsdk::sim
