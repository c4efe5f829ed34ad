#include <kwtsdk/sim/simulated_recorder.h>
#include "sim/link/fault_line.h"
#include "sim/link/script_line.h"

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

}  // namespace

DeviceScript parseDeviceScript(std::string_view text) {
  DeviceScript script;
  for (const ScriptLine& line : ScriptLine::linesOf(text)) {
    if (readTimingLine(line, script.timing) || readFaultLine(line, *script.faults) ||
        readRecorderLine(line, script)) {
      continue;
    }
    line.fail("\"" + line[0] +
              "\" is unknown; a line begins with latency, interval, packets, mtu, write, acknowledgement, "
              "notification, subscription, key or call");
  }
  return script;
}

}  // namespace kwtsdk::sim
