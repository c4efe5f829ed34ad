#include <chrono>

#include "tools/choice.h"
#include "tools/command_line.h"

namespace kwtsdk::tool {
namespace {

struct ScanRequest {
  Duration time;
  bool all;  // also what does not look like a recorder
};

std::string lineOf(const bluez::FoundDevice& device) {
  constexpr std::size_t width = 8;
  const std::string signal = device.signal ? std::to_string(*device.signal) + " dBm" : "?";
  return device.address + "  " + std::string(signal.size() < width ? width - signal.size() : 0, ' ') +
         signal + "  " + printable(device.name);
}

Record recordOf(const bluez::FoundDevice& device) {
  Record record{{"address", device.address}, {"name", device.name}};
  if (device.signal) record["signal"] = std::int64_t{*device.signal};
  return record;
}

void scan(const Environment& environment, const ScanRequest& request, Output& output) {
  const auto result = listened(environment, request.time, request.all);
  std::vector<Record> records;
  if (!result.devices.empty()) output.line("Address              Signal  Name");
  for (const auto& device : result.devices) {
    output.line(lineOf(device));
    records.push_back(recordOf(device));
  }
  output.setList("devices", records);
  if (result.error) throw scanFailure(*result.error);
  if (!result.devices.empty()) return;
  output.line(request.all
                  ? "No Bluetooth Low Energy device was heard."
                  : "No recorder was heard. Check that it is switched on, in range and not connected; "
                    "`kwt scan --all` shows every device.");
}

Action prepareScan(const Arguments& arguments) {
  constexpr Duration usual = std::chrono::seconds(8), longest = std::chrono::hours(1);
  const ScanRequest request{arguments.duration("-d", longest).value_or(usual), arguments.has("--all")};
  return [request](const Environment& environment, Output& output) { scan(environment, request, output); };
}

const RegisteredCommand kScanCommand(
    {.place = 1,
     .name = "scan",
     .description = "Show the recorders in Bluetooth range",
     .recorder = Command::Recorder::none,
     .parameters = {{"-d,--duration", "SECONDS", "Listen so many seconds (default: 8)",
                     Parameter::Kind::seconds},
                    {"--all", "", "Show every Bluetooth Low Energy device, recorder or not",
                     Parameter::Kind::flag}},
     .prepare = prepareScan,
     .isQuestion = true});

}  // namespace
}  // namespace kwtsdk::tool
