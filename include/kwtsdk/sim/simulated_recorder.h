#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include <kwtsdk/sim/link_timing.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/scripted_faults.h>
#include <kwtsdk/sim/simulated_link.h>

namespace kwtsdk::sim {

/// How a link behaves, as a text says it: the fault lines of ScriptedFaults and
///   latency 5ms
///   interval 7.5ms
///   packets 4
///   mtu 247
struct LinkScript {
  LinkTiming timing;
  std::shared_ptr<ScriptedFaults> faults = std::make_shared<ScriptedFaults>();
};

/// Throws std::runtime_error naming the line that cannot be read.
KWTSDK_EXPORT LinkScript parseLinkScript(std::string_view text);

/// A recorder whose store is a folder, ready to attach.
struct SimulatedRecorder {
  std::shared_ptr<RecorderModel> model;
  std::shared_ptr<SimulatedLink> link;
};

/// Opens the folder as FolderStore does; the link follows `device/script` below it where that exists. Throws
/// std::runtime_error whose text says what to do.
KWTSDK_EXPORT SimulatedRecorder openSimulatedRecorder(const std::shared_ptr<Scheduler>& scheduler,
                                                      const std::filesystem::path& folder);

}  // namespace kwtsdk::sim
