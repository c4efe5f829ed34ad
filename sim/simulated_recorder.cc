#include <kwtsdk/sim/simulated_recorder.h>

#include <fstream>
#include <sstream>
#include <stdexcept>
#include <utility>

#include <kwtsdk/sim/folder_store.h>

#include "sim/store/firmware_file.h"

namespace kwtsdk::sim {

namespace {

DeviceScript readScript(const std::filesystem::path& path) {
  if (!std::filesystem::exists(path)) return {};
  std::ifstream file(path);
  std::ostringstream text;
  text << file.rdbuf();
  if (!file || !std::filesystem::is_regular_file(path)) {
    throw std::runtime_error(path.string() + " cannot be read: check its permissions or remove it");
  }
  try {
    return parseDeviceScript(text.str());
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path.string() + ", " + error.what());
  }
}

}  // namespace

SimulatedRecorder openSimulatedRecorder(const std::shared_ptr<Scheduler>& scheduler,
                                        const std::filesystem::path& folder,
                                        const std::function<void(LinkTiming&)>& adjust) {
  auto model = std::make_shared<RecorderModel>(FolderStore::open(folder));
  DeviceScript script = readScript(folder / "device" / "script");
  if (adjust) adjust(script.timing);
  model->setInCall(script.inCall);
  model->setKeyAfter(script.keyAfter);
  model->setCallAfter(script.callAfter);
  model->setUpdateTroubles(std::move(script.updateTroubles));
  model->setUpdateMtu(script.updateMtu);
  if (auto image = readFirmware(folder)) model->setFirmware(std::move(*image));
  model->setFirmwareSlot([folder](const Bytes& image) { return writeFirmware(folder, image); });
  auto link = SimulatedLink::create(scheduler, model, script.timing, std::move(script.faults));
  return {std::move(model), std::move(link)};
}

}  // namespace kwtsdk::sim
