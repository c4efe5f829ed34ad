#include <kwtsdk/bluez/problem.h>
#include <kwtsdk/bluez/scanner.h>

#include "tools/bluetooth_failure.h"
#include "tools/commands.h"
#include "tools/terminal_line.h"
#include "tools/text.h"

namespace kwtsdk::tool {
namespace {

/// The service that recorders advertise.
constexpr const char* kRecorderService = "4B1D9E07-53A6-42C8-B7F0-6E2A19820001";

bluez::ScanResult listen(const Host& host, const ScanRequest& request) {
  bluez::ScanFilter filter;
  if (!request.all) filter.services.push_back(Uuid::fromString(kRecorderService).value());
  const auto scanner = bluez::Scanner::create(host.scheduler);
  host.interrupt.setAction([scanner] { scanner->stop(); });
  TerminalLine line(*host.scheduler);
  line.show("Listening for " + secondsText(std::chrono::duration<double>(request.time).count(), 0) + "...");
  auto result = scanner->scan(request.time, filter);
  line.clear();
  host.interrupt.setAction(nullptr);
  return result;
}

Failure failureOf(const Error& error) {
  if (!isProblem(error, bluez::Problem::connectionLost)) return bluetoothFailure(error);
  return {error, "The Bluetooth service ended meanwhile", "Run the command again."};
}

std::string lineOf(const bluez::FoundDevice& device) {
  const std::string signal = device.signal ? std::to_string(*device.signal) : "?";
  return device.address + "  " + std::string(signal.size() < 12 ? 12 - signal.size() : 0, ' ') + signal +
         "  " + printable(device.name);
}

Record recordOf(const bluez::FoundDevice& device) {
  Record record{{"address", device.address}, {"name", device.name}};
  if (device.signal) record["signal"] = std::int64_t{*device.signal};
  return record;
}

}  // namespace

void runScan(const Host& host, const ScanRequest& request, Output& output) {
  const auto result = listen(host, request);
  std::vector<Record> records;
  if (!result.devices.empty()) output.line("address            signal (dBm)  name");
  for (const auto& device : result.devices) {
    output.line(lineOf(device));
    records.push_back(recordOf(device));
  }
  output.setList("devices", records);
  if (result.error) throw failureOf(*result.error);
  if (!result.devices.empty()) return;
  output.line(request.all
                  ? "No Bluetooth Low Energy device was heard."
                  : "No recorder was heard. Check that it is switched on, in range and not connected; "
                    "`kwt scan --all` shows every device.");
}

}  // namespace kwtsdk::tool
