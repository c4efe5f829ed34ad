#include "tools/choice.h"

#include <algorithm>
#include <cctype>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <stop_token>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/bluez/problem.h>

#include "tools/config.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {
namespace {

using Devices = std::vector<bluez::FoundDevice>;

constexpr const char* kSwitchOn =
    "Check that it is switched on, in range and not connected to another host, then run the command again; "
    "`kwt scan --all` shows every device.";

std::string lowered(std::string text) {
  std::ranges::transform(text, text.begin(), [](unsigned char c) { return std::tolower(c); });
  return text;
}

/// Those of the name, or if there are none, those of it in other letter case.
Devices ofName(const Devices& heard, const std::string& name) {
  Devices same, alike;
  for (const auto& device : heard) {
    if (device.name == name) same.push_back(device);
    if (lowered(device.name) == lowered(name)) alike.push_back(device);
  }
  return same.empty() ? alike : same;
}

Failure tooMany(const Devices& devices, const std::string& what) {
  std::string list;
  for (const auto& device : devices)
    list += (list.empty() ? "" : ", ") + device.address + " (" + printable(device.name) + ")";
  return {ToolError::notNamed, std::to_string(devices.size()) + " recorders " + what + ": " + list + ".",
          "Name one with --device ADDRESS, or for good with `kwt device ADDRESS`."};
}

void checkStopped(const Environment& environment) {
  if (environment.stop.stop_requested())
    throw Failure(ToolError::interrupted, "Interrupted.", "Run the command again.");
}

bluez::ScanResult heardNow(const Environment& environment, Duration time, bool all) {
  auto result = listened(environment, time, all);
  checkStopped(environment);
  if (result.error) throw scanFailure(*result.error);
  return result;
}

std::string addressOf(const Environment& environment, const std::string& name) {
  // A device tells its name within a few of its advertisements; who is there is found at once.
  constexpr Duration step = std::chrono::seconds(2);
  constexpr int steps = 8;
  for (int i = 0; i < steps; ++i) {
    const Devices found = ofName(heardNow(environment, step, true).devices, name);
    if (found.size() > 1) throw tooMany(found, "are called " + printable(name));
    if (found.size() == 1) return found.front().address;
  }
  throw Failure(ToolError::notHeard, "No recorder called " + printable(name) + " was heard.", kSwitchOn);
}

std::string onlyOne(const Environment& environment) {
  // Long enough for every recorder in range to be heard: the first one would not be the only one.
  constexpr Duration time = std::chrono::seconds(3);
  const Devices heard = heardNow(environment, time, false).devices;
  if (heard.empty()) throw Failure(ToolError::notHeard, "No recorder was heard.", kSwitchOn);
  if (heard.size() > 1) throw tooMany(heard, "are in range");
  return heard.front().address;
}

}  // namespace

NamedRecorder namedRecorder(const Environment& environment) {
  if (!environment.device.empty()) return {environment.device, "--device"};
  const char* const variable = std::getenv("KWT_DEVICE");
  if (variable != nullptr && *variable != '\0') return {variable, "KWT_DEVICE"};
  const Config config;
  const auto kept = config.value("device");
  return kept ? NamedRecorder{*kept, config.path().string()} : NamedRecorder{};
}

std::string chosenRecorder(const Environment& environment) {
  const NamedRecorder named = namedRecorder(environment);
  if (bluez::Device::isAddress(named.name)) return named.name;
  std::string address = named.name.empty() ? onlyOne(environment) : addressOf(environment, named.name);
  if (environment.verbose) {
    std::cerr << "kwt: The recorder is " << address
              << (named.name.empty() ? ", the only one in range" : ", named by " + named.by) << ".\n";
  }
  return address;
}

bluez::ScanResult listened(const Environment& environment, Duration time, bool all) {
  bluez::ScanFilter filter;
  if (!all) filter.services.push_back(Uuid::fromString(wire::kRecorderService).value());
  const auto scanner = bluez::Scanner::create(environment.scheduler, environment.adapter);
  const std::stop_callback onInterrupt(environment.stop, [&] { scanner->stop(); });
  TerminalLine line(*environment.scheduler);
  line.show("Listening for " + secondsText(std::chrono::duration<double>(time).count(), 0) + "...");
  auto result = scanner->scan(time, filter);
  line.clear();
  return result;
}

Failure scanFailure(const Error& error) {
  if (!isProblem(error, bluez::Problem::connectionLost)) return bluetoothFailure(error);
  return {error, "The Bluetooth service ended meanwhile", "Run the command again."};
}

}  // namespace kwtsdk::tool
