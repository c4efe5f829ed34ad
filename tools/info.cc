#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

void showInfo(const Environment& environment, Output& output) {
  const auto recorder = openRecorder(environment);
  const auto limits = limitsOfQuery(environment);
  const std::uint64_t battery = valueOf(recorder->battery(limits).wait());
  output.line("Battery level     " + std::to_string(battery));
  output.set("battery", battery);

  const std::string version = valueOf(recorder->firmware(limits).wait());
  output.line("Firmware version  " + version);
  output.set("firmware", version);

  const auto storage = valueOf(recorder->storage(limits).wait());
  std::string counts;
  for (const std::uint64_t count : storage) counts += (counts.empty() ? "" : ", ") + std::to_string(count);
  output.line("Storage           " + counts + " bytes (in the recorder's order)");
  output.set("storage", storage);
}

const RegisteredCommand kInfoCommand({.place = 2,
                                      .name = "info",
                                      .description = "Show battery level, firmware version and storage",
                                      .prepare = [](const Arguments&) { return showInfo; }});

}  // namespace
}  // namespace kwtsdk::tool
