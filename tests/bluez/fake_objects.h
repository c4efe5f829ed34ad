#pragma once

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <deque>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

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

/// Whether notifications come through descriptors.
inline bool isAcquirable() {
  const char* const way = std::getenv("KWT_NOTIFY");
  return way == nullptr || std::string_view(way) != "bus";
}

/// A characteristic of the recorder as BlueZ shows it, and what passes on its notifications.
struct FakeGatt {
  using CallPtr = FakeBus::CallPtr;

  FakeGatt(FakeBus& bus, std::string itsPath, std::shared_ptr<Characteristic> its, std::uint16_t mtu)
      : path(std::move(itsPath)), source(std::move(its)), object(bus.object(path)) {
    std::vector<std::string> flags;
    if ((source->properties() & characteristic_property::write) != 0) flags.emplace_back("write");
    if ((source->properties() & characteristic_property::notify) != 0) flags.emplace_back("notify");
    add("UUID", source->UUID().toString());
    add("Flags", flags);
    add("MTU", mtu);
    bus.addMethods<Bytes, FakeBus::Properties>(object, bluez::kCharacteristic, {"WriteValue"});
    bus.addMethods(object, bluez::kCharacteristic, {"StartNotify", "StopNotify"});
    if (isAcquirable()) {
      add("NotifyAcquired", false);
      bus.addAcquireNotify(object, bluez::kCharacteristic, mtu);
    }
    FakeBus::publish(object);
  }

  std::string id() const { return source->UUID().toString(); }

  /// The call's answer has the descriptor's other end.
  void openStream(FakeBus::Call& call) {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends.data()) != 0)
      throw std::system_error(errno, std::generic_category(), "socketpair");
    stream.reset(ends[0], sdbus::adopt_fd);
    call.descriptor.reset(ends[1], sdbus::adopt_fd);
  }

  sdbus::UnixFd end() {
    notifying = false;
    return std::exchange(stream, {});
  }

  void pass(const Bytes& value) const {
    if (!stream.isValid()) return show(value);
    // Where BlueZ drops what there is no room for, this one waits.
    ::send(stream.get(), value.data(), value.size(), MSG_NOSIGNAL);
  }
  void show(const Bytes& value) const {
    FakeBus::tell(object, bluez::kCharacteristic, {{"Value", sdbus::Variant(value)}});
  }

  std::string path;
  std::shared_ptr<Characteristic> source;
  FakeBus::Object object;
  CallPtr running = nullptr;
  bool notifying = false;
  sdbus::UnixFd stream = {};

 private:
  template <class T>
  void add(const char* name, T value) {
    FakeBus::addProperty(object, bluez::kCharacteristic, name, [value] { return value; });
  }
};

/// What the fake BlueZ does from a write on that the recorder has carried out, before it answers it: commands
/// separated by ";". Those behind a "value" wait until a notification has been passed on.
class Course {
 public:
  using Of = std::function<std::string(const Bytes& written)>;

  void set(Of of) { of_ = std::move(of); }
  void begin(const Bytes& written) {
    steps_.clear();
    std::istringstream commands(of_ ? of_(written) : "");
    for (std::string step; std::getline(commands, step, ';');) steps_.push_back(step);
  }
  void end() { steps_.clear(); }

  /// None: nothing for now.
  std::optional<std::string> next() {
    if (steps_.empty() || steps_.front() == "value") return std::nullopt;
    std::string step = std::move(steps_.front());
    steps_.pop_front();
    return step;
  }
  void passed() {
    if (!steps_.empty()) steps_.pop_front();
  }

 private:
  Of of_;
  std::deque<std::string> steps_;
};

}  // namespace kwtsdk::testing
