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

}  // namespace

LinkScript parseLinkScript(std::string_view text) {
  LinkScript script;
  for (const ScriptLine& line : ScriptLine::linesOf(text)) {
    if (readTimingLine(line, script.timing) || readFaultLine(line, *script.faults)) continue;
    line.fail("\"" + line[0] +
              "\" is unknown; a line begins with latency, interval, packets, mtu, write, acknowledgement, "
              "notification or subscription");
  }
  return script;
}

}  // namespace kwtsdk::sim
