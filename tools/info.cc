#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

void showInfo(const Environment& environment, Output& output) {
  Session session(environment);
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

const RegisteredCommand kInfoCommand({.place = 2,
                                      .name = "info",
                                      .description = "Show battery level, firmware version and storage",
                                      .prepare = [](const Arguments&) { return showInfo; }});

}  // namespace
}  // namespace kwtsdk::tool
