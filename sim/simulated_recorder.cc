#include <kwtsdk/sim/simulated_recorder.h>

#include <dlfcn.h>

#include <algorithm>
#include <limits>
#include <stdexcept>
#include <string>
#include <utility>

#include <kwtsdk/sim/folder_store.h>

#include "sim/link/script_line.h"
#include "sim/model/firmware_wire.h"
#include "sim/model/wire.h"
#include "sim/store/device_folder.h"

namespace kwtsdk::sim {

namespace {

bool readTimingLine(const ScriptLine& line, LinkTiming& timing) {
  const std::string& name = line[0];
  const bool isDuration = name == "latency" || name == "interval";
  if (!isDuration && name != "packets" && name != "mtu") return false;

  line.expectSize(2, 2, name + (isDuration ? " DURATION" : " NUMBER"));
  if (name == "latency") timing.latency = line.duration(1);
  if (name == "interval") timing.connectionInterval = line.duration(1);
  if (name == "packets") timing.packetsPerInterval = static_cast<unsigned>(line.number(1, 1, 1000));
  if (name == "mtu") {
    timing.mtu = static_cast<std::size_t>(line.number(1, LinkTiming::kSmallestMtu, LinkTiming::kGreatestMtu));
  }
  return true;
}

bool readRecorderLine(const ScriptLine& line, DeviceScript& script) {
  if (line[0] == "battery") {
    line.expectSize(2, 2, "battery NUMBER");
    script.battery = static_cast<std::uint32_t>(line.number(1, 0, std::numeric_limits<std::uint32_t>::max()));
    return true;
  }
  const auto ending = std::ranges::find(wire::kEndings, line[0], &wire::Ending::keyword);
  if (ending == wire::kEndings.end()) return false;
  const bool isCall = *ending == &wire::kByCall;
  line.expectSize(isCall ? 1 : 2, 2, line[0] + (isCall ? " [DURATION]" : " DURATION"));
  if (line.size() == 1) {
    script.inCall = true;
  } else {
    script.*(*ending)->after = line.duration(1);
  }
  return true;
}

[[noreturn]] void failAsUnknown(const ScriptLine& line) {
  std::string known =
      "latency, interval, packets, mtu, battery, write, acknowledgement, notification, subscription";
  for (const wire::Ending* const ending : wire::kEndings) known.append(", ").append(ending->keyword);
  line.fail("\"" + line[0] + "\" is unknown; a line begins with " + known + " or update");
}

UpdateTrouble readTrouble(const ScriptLine& line, bool silent) {
  const wire::StepForm* form = wire::stepNamed(line[2]);
  if (!form) {
    line.fail("\"" + line[2] +
              "\" is no step; use prepare, partition, resume, begin, configuration, check or bye");
  }
  if (!silent && !form->refusable) line.fail(line[2] + " has no refusal; use silent");
  const bool isCheck = form->step == UpdateStep::check;
  line.expectSize(3, isCheck ? 4 : 3, "update " + line[1] + " " + line[2] + (isCheck ? " [NUMBER]" : ""));
  constexpr std::uint64_t mostChecks = std::numeric_limits<std::uint32_t>::max();
  return {form->step, silent, line.size() == 4 ? static_cast<std::size_t>(line.number(3, 1, mostChecks)) : 1};
}

bool readUpdateLine(const ScriptLine& line, DeviceScript& script) {
  if (line[0] != "update") return false;
  const std::string form = "update refuse|silent STEP or update mtu NUMBER";
  line.expectSize(3, 4, form);
  if (line[1] == "refuse" || line[1] == "silent") {
    script.updateTroubles.push_back(readTrouble(line, line[1] == "silent"));
  } else if (line[1] == "mtu") {
    line.expectSize(3, 3, "update mtu NUMBER");
    script.updateMtu =
        static_cast<std::uint16_t>(line.number(2, 0, std::numeric_limits<std::uint16_t>::max()));
  } else {
    line.fail("write it as \"" + form + "\"");
  }
  return true;
}

using Listen = void(const std::filesystem::path*, std::shared_ptr<Microphone>*);

/// By the library that encodes sound, which is loaded here: the simulated recorder itself needs no codec.
/// Null, which is silence, where it is not installed: a host may bring a microphone of its own.
std::shared_ptr<Microphone> microphoneOfFolder(const std::filesystem::path& folder) {
  // Never closed: its code has to outlive the microphone.
  void* const library = ::dlopen(KWTSDK_SIM_SOUND_LIBRARY, RTLD_NOW | RTLD_LOCAL);
  void* const symbol = library == nullptr ? nullptr : ::dlsym(library, "kwtsdkListen");
  std::shared_ptr<Microphone> microphone;
  if (symbol != nullptr) reinterpret_cast<Listen*>(symbol)(&folder, &microphone);
  return microphone;
}

DeviceScript readScript(const std::filesystem::path& path) {
  const auto text = textOf(path);
  if (!text) return {};
  try {
    return parseDeviceScript(*text);
  } catch (const std::runtime_error& error) {
    throw std::runtime_error(path.string() + ", " + error.what());
  }
}

}  // namespace

DeviceScript parseDeviceScript(std::string_view text) {
  DeviceScript script;
  for (const ScriptLine& line : ScriptLine::linesOf(text)) {
    const bool known = readTimingLine(line, script.timing) || readFaultLine(line, *script.faults) ||
                       readRecorderLine(line, script) || readUpdateLine(line, script);
    if (!known) failAsUnknown(line);
  }
  return script;
}

SimulatedRecorder openSimulatedRecorder(const std::shared_ptr<Scheduler>& scheduler,
                                        const std::filesystem::path& folder,
                                        const std::function<void(LinkTiming&)>& adjust) {
  const DeviceFolder device(folder);
  const auto store = FolderStore::open(folder);
  auto model = std::make_shared<RecorderModel>(store);
  DeviceScript script = readScript(device.script());
  if (adjust) adjust(script.timing);
  const auto microphone = microphoneOfFolder(folder);
  model->setMicrophone(microphone);
  model->setInCall(script.inCall);
  if (script.battery) model->setBatteryLevel(*script.battery);
  model->setRecordingEnds(script);
  model->setUpdateTroubles(std::move(script.updateTroubles));
  model->setUpdateMtu(script.updateMtu);
  if (auto image = device.readFirmware()) model->setFirmware(std::move(*image));
  model->setFirmwareStaging([device](std::size_t offset, std::span<const std::uint8_t> segment) {
    return device.stageFirmware(offset, segment);
  });
  model->setFirmwareSlot([device](const Bytes& image) { return device.writeFirmware(image); });
  auto link = SimulatedLink::create(scheduler, model, script.timing, std::move(script.faults));
  return {std::move(model), std::move(link), store->warnings(), microphone != nullptr};
}

}  // namespace kwtsdk::sim
