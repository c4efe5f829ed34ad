#include "tools/choice.h"
#include "tools/command_line.h"
#include "tools/config.h"

namespace kwtsdk::tool {
namespace {

constexpr const char* kKey = "device";

void forget(Output& output) {
  Config config;
  config.set(kKey, std::nullopt);
  config.save();
  output.line("No recorder is the usual one any more: commands use the only one in range.");
}

void keep(const std::string& name, Output& output) {
  Config config;
  config.set(kKey, name);
  config.save();
  output.line("Commands use the recorder " + printable(name) + " from now on.");
  output.set("device", name);
  output.set("by", config.path().string());
}

void show(const Environment& environment, Output& output) {
  const NamedRecorder named = namedRecorder(environment);
  if (named.name.empty()) {
    return output.line(
        "No recorder is the usual one: commands use the only one in range. `kwt device ADDRESS` names one.");
  }
  output.line(printable(named.name) + " (from " + named.by + ")");
  output.set("device", named.name);
  output.set("by", named.by);
}

Action prepareDevice(const Arguments& arguments) {
  constexpr const char* name = "recorder";
  const std::string& given = arguments.text(name);
  const bool forgets = arguments.has("--forget");
  require(!arguments.has(name) || !given.empty(), "device needs an address or a name");
  require(!arguments.has(name) || !forgets, "device takes a recorder or --forget, not both");
  require(given.find('\n') == std::string::npos, "a recorder's name is one line");
  return [given, forgets](const Environment& environment, Output& output) {
    if (forgets) return forget(output);
    if (!given.empty()) return keep(given, output);
    show(environment, output);
  };
}

const RegisteredCommand kDeviceCommand(
    {.place = 15,
     .name = "device",
     .description = "Show, choose or forget the recorder that commands are for",
     .recorder = Command::Recorder::none,
     .parameters = {{"recorder", "ADDRESS|NAME", "The recorder of all commands without --device"},
                    {"--forget", "", "No recorder any more", Parameter::Kind::flag}},
     .prepare = prepareDevice,
     .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
