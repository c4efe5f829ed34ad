#pragma once

#include <algorithm>
#include <atomic>

#include "sim/model/wire.h"
#include "tests/bluez/fake_bus.h"

namespace kwtsdk::testing {

struct DeviceState {
  std::atomic<bool> connected{false}, resolved{false};  // properties
};

/// A recorder as BlueZ shows it. Without a state it is known from earlier and not heard now.
inline FakeBus::Object fakeDevice(FakeBus& bus, std::string path, const std::string& address,
                                  const DeviceState* state) {
  std::ranges::replace(path.append("/dev_").append(address), ':', '_');
  auto made = bus.object(path);
  const auto add = [&](const char* name, auto get) { FakeBus::addProperty(made, bluez::kDevice, name, get); };
  add("Address", [address] { return address; });
  add("Name", [state] { return std::string(state ? "Recorder" : "Stranger"); });
  add("UUIDs", [] { return std::vector<std::string>{sim::wire::kRecorderService}; });
  add("Connected", [state] { return state && state->connected; });
  add("ServicesResolved", [state] { return state && state->resolved; });
  if (state) add("RSSI", [] { return std::int16_t(-50); });
  bus.addMethods(made, bluez::kDevice, {"Connect", "Disconnect"});
  FakeBus::publish(made);
  return made;
}

}  // namespace kwtsdk::testing
