#include "tools/commands.h"
#include "tools/recorder_queries.h"

namespace kwtsdk::tool {

void runInfo(const Host& host, Output& output) {
  Session session(host);
  const std::int64_t battery = batteryLevel(session);
  output.line("Battery level     " + std::to_string(battery));
  output.set("battery", battery);

  pause(session);
  const std::string version = firmwareVersion(session);
  output.line("Firmware version  " + version);
  output.set("firmware", version);

  pause(session);
  const auto capacity = session.recorder().getCapacity();
  if (!capacity) throw noAnswer(session);
  std::string counts;
  for (const std::uint64_t count : *capacity) counts += (counts.empty() ? "" : ", ") + std::to_string(count);
  output.line("Storage           " + counts + " bytes (in the recorder's order)");
  output.set("storage", *capacity);
}

}  // namespace kwtsdk::tool
