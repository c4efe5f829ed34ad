#include <kwtsdk/sim/simulated_recorder.h>

#include <limits>
#include <string>

#include "sim/link/fault_line.h"
#include "sim/link/script_line.h"
#include "sim/model/update_steps.h"

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
  const std::string& name = line[0];
  if (name == "key") {
    line.expectSize(2, 2, "key DURATION");
    script.keyAfter = line.duration(1);
  } else if (name == "call") {
    line.expectSize(1, 2, "call [DURATION]");
    if (line.size() == 1) {
      script.inCall = true;
    } else {
      script.callAfter = line.duration(1);
    }
  } else {
    return false;
  }
  return true;
}

UpdateTrouble readTrouble(const ScriptLine& line, bool silent) {
  const StepForm* form = stepNamed(line[2]);
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

}  // namespace

DeviceScript parseDeviceScript(std::string_view text) {
  DeviceScript script;
  for (const ScriptLine& line : ScriptLine::linesOf(text)) {
    if (readTimingLine(line, script.timing) || readFaultLine(line, *script.faults) ||
        readRecorderLine(line, script) || readUpdateLine(line, script)) {
      continue;
    }
    line.fail("\"" + line[0] +
              "\" is unknown; a line begins with latency, interval, packets, mtu, write, acknowledgement, "
              "notification, subscription, key, call or update");
  }
  return script;
}

}  // namespace kwtsdk::sim
