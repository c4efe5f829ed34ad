#pragma once

#include <algorithm>
#include <atomic>
#include <sstream>

#include <kwtsdk/sim/simulated_link.h>

#include "tests/bluez/fake_objects.h"
#include "tests/bluez/journal.h"

namespace kwtsdk::testing {

inline constexpr const char* kRecorderAddress = "AA:BB:CC:DD:EE:FF";

/// A fake bluetoothd on the system bus with the adapter hci0 and a simulated recorder in reach. As BlueZ
/// does, it knows a device after a discovery heard it, refuses a second operation on the same characteristic
/// while one is under way, and passes notifications on between StartNotify and StopNotify, or through the
/// descriptor that AcquireNotify gave, which KWT_NOTIFY=bus in the environment takes away. The journal gets
/// "METHOD" or "METHOD UUID" when a call comes and "METHOD answered", "notified UUID"; "overlap" for a GATT
/// operation that comes while another is under way.
class FakeBluez {
 public:
  /// Not started yet. Nobody else may hold the link when this ends.
  FakeBluez(Scheduler& scheduler, std::shared_ptr<sim::SimulatedLink> link, std::shared_ptr<Journal> journal)
      : link_(std::move(link)),
        journal_(std::move(journal)),
        bus_(scheduler, [this](const CallPtr& call) { take(call); }) {
    link_->disconnect();
    const auto post = [this](const auto& source, const std::optional<Bytes>& value, const MaybeError& error) {
      bus_.post([=, this] { tellOf(source, value, error.has_value()); });
    };
    link_->setEvents(
        [post](auto&&, const auto& source, const auto& error) { post(source, std::nullopt, error); },
        [post](auto&&, const auto& source, const auto&) { post(source, source->value(), std::nullopt); });
    link_->setOnDisconnect([this] {
      bus_.post([this] {  // unless it is connected again
        if (link_ && link_->peripheral()->state() == PeripheralState::disconnected) lose();
      });
    });
  }
  ~FakeBluez() {
    obey("end");
    bus_.run([this] { link_ = nullptr; });  // which waits for its events
  }

  /// Commands separated by ";", done when this returns. Throws std::exception.
  ///   start | end                       of the service
  ///   adapter on|off   power on|off     the adapter is there, has power
  ///   stranger on|off                   another device, of a recorder's service, is heard too
  ///   heard on|off                      the recorder is in reach; while off, it accepts no connection either
  ///   resolve on|off                    its services become known, after a connection
  ///   mtu N | lack UUID-PART            of its characteristics
  ///   refuse METHOD ERROR | hold METHOD | release METHOD
  ///   lose | hang up                    the connection, only the descriptors
  ///   linger on|off | keep UUID-PART    outlive it: descriptors; characteristics, not announced again
  ///   notify UUID-PART SIZE | read UUID-PART    the recorder tells something, another program has read it
  /// "Ack" as METHOD: the answers to writes that the recorder has carried out.
  void obey(const std::string& commands) {
    std::istringstream lines(commands);
    for (std::string line; std::getline(lines, line, ';');) bus_.run([&] { obeyOne(line); });
  }
  void setCourse(Course::Of course) {
    bus_.run([&] { course_.set(std::move(course)); });
  }

 private:
  static constexpr const char *kAdapterPath = "/org/bluez/hci0", *kFailed = "org.bluez.Error.Failed";

  using Object = FakeBus::Object;
  using CallPtr = FakeBus::CallPtr;

  void obeyOne(const std::string& command) {
    std::istringstream words(command);
    std::string verb, object, error;
    words >> verb >> object >> error;
    if (verb == "start") {
      if (!bus_.isStarted()) bus_.start([this] { follow(); });
    } else if (verb == "end") {
      if (bus_.isStarted()) bus_.end([this] { forget(); });
    } else if (verb == "lose") {
      lose();
    } else if (verb == "hang") {
      for (auto& gatt : gatts_) gatt.stream.reset();
    } else if (verb == "notify" || verb == "read") {
      for (const auto& gatt : gatts_) {
        if (gatt.id().find(object) == std::string::npos) continue;
        verb == "notify" ? tellOf(gatt.source, Bytes(std::stoul(error)), false) : gatt.show({});
      }
    } else if (verb == "hold" || verb == "refuse") {
      state_[object] = verb == "hold" ? verb : error;
    } else if (verb == "release") {
      state_.erase(object);
    } else if (state_.contains(verb)) {
      state_[verb] = object;
    } else {
      throw std::invalid_argument("unknown command: " + command);
    }
    if (bus_.isStarted()) follow();
  }

  void follow() {  // the state
    const bool adapter = state_["adapter"] == "on", power = state_["power"] == "on";
    if (adapter != (adapter_ != nullptr)) adapter ? addAdapter() : removeAdapter();
    if (adapter_ && power_.exchange(power) != power) {
      FakeBus::tell(adapter_, bluez::kAdapter, {{"Powered", sdbus::Variant(power)}});
      if (!power) lose();
    }
    if (discovering_) hear();
    resolve();
    const auto free =
        std::stable_partition(held_.begin(), held_.end(), [&](const CallPtr& call) { return isHeld(*call); });
    acknowledge();
    const std::vector<CallPtr> released(free, held_.end());  // whose work may fail what is still held
    held_.erase(free, held_.end());
    for (const auto& call : released) work(call);
  }

  void forget() {
    for (auto* const object : {&recorder_, &stranger_, &adapter_}) *object = nullptr;
    gatts_.clear();
    held_.clear();
    late_.clear();
    discovering_ = is_.connected = is_.resolved = false;
    link_->disconnect();
  }

  void take(const CallPtr& call) {
    std::string line = call->method;
    if (call->path.find("/char") != std::string::npos) {
      FakeGatt* const gatt = gattAt(call->path);
      if (gatt == nullptr) return answer(call, "org.freedesktop.DBus.Error.UnknownObject");  // just withdrawn
      if (std::ranges::any_of(gatts_, [](const FakeGatt& each) { return each.running != nullptr; }))
        journal_->add("overlap");
      if (gatt->running) return answer(call, "org.bluez.Error.InProgress");
      gatt->running = call;
      line += " " + gatt->id().substr(4, 4);
    }
    journal_->add(line);
    if (isHeld(*call)) return held_.push_back(call);
    const std::string refusal = state_[call->method];
    refusal.empty() ? work(call) : answer(call, refusal);
  }

  void work(const CallPtr& call) {
    const std::string& method = call->method;
    if (method == "Connect") return connect(call);
    if (method == "Disconnect") lose(), failHeld();
    if (method == "StartDiscovery" || method == "StopDiscovery") discover(method == "StartDiscovery");
    if (method.ends_with("Notify")) {
      FakeGatt& gatt = *gattAt(call->path);
      gatt.notifying = method != "StopNotify";
      if (method == "AcquireNotify") gatt.openStream(*call);
      link_->peripheral()->setNotifyValue(gatt.notifying, gatt.source);
    }
    if (method == "WriteValue") {
      const auto type = call->request ? WriteType::withResponse : WriteType::withoutResponse;
      link_->peripheral()->writeValue(call->value, gattAt(call->path)->source, type);
      if (call->request) return;  // the link tells when to answer
    }
    answer(call);
  }

  void answer(const CallPtr& call, const std::string& error = {}) {
    for (auto& gatt : gatts_) {
      if (gatt.running == call) gatt.running = nullptr;
    }
    journal_->add(call->method + " answered");  // before the host learns of it
    FakeBus::answer(*call, error);
    call->descriptor.reset();
  }
  void acknowledge() {
    if (state_["Ack"] == "hold") return;
    for (const auto& [call, error] : std::exchange(late_, {}))
      answer(call, error.empty() ? state_["Ack"] : error);
  }
  void goOn() {
    while (const auto step = course_.next()) obeyOne(*step);
  }

  bool isHeld(const FakeBus::Call& call) {
    return state_[call.method] == "hold" || (call.method == "Connect" && state_["heard"] != "on");
  }
  void failHeld() {
    for (const auto& call : std::exchange(held_, {})) answer(call, kFailed);
  }

  void addAdapter() {
    adapter_ = bus_.object(kAdapterPath);
    power_ = state_["power"] == "on";
    FakeBus::addProperty(adapter_, bluez::kAdapter, "Powered", [this] { return power_.load(); });
    bus_.addMethods<FakeBus::Properties>(adapter_, bluez::kAdapter, {"SetDiscoveryFilter"});
    bus_.addMethods(adapter_, bluez::kAdapter, {"StartDiscovery", "StopDiscovery"});
    FakeBus::publish(adapter_);
    stranger_ = fakeDevice(bus_, kAdapterPath, "11:22:33:44:55:66", nullptr);
  }
  void removeAdapter() {
    lose();
    for (auto* const object : {&recorder_, &stranger_, &adapter_}) FakeBus::withdraw(*object);
    discovering_ = false;
  }

  void discover(bool on) {
    discovering_ = on;
    if (on) hear();
    if (!on && recorder_) FakeBus::tell(recorder_, bluez::kDevice, {}, {"RSSI"});
  }
  void hear() {
    const bool heard = state_["heard"] == "on";
    if (heard && recorder_)
      FakeBus::tell(recorder_, bluez::kDevice, {{"RSSI", sdbus::Variant(std::int16_t(-60))}});
    if (heard && !recorder_) recorder_ = fakeDevice(bus_, kAdapterPath, kRecorderAddress, &is_);
    if (!heard && !is_.connected) FakeBus::withdraw(recorder_);
    if (state_["stranger"] == "on")
      FakeBus::tell(stranger_, bluez::kDevice, {{"RSSI", sdbus::Variant(std::int16_t(-70))}});
  }

  void connect(const CallPtr& call) {
    if (is_.connected) return answer(call);
    lingering_.clear();
    link_->connect();
    is_.connected = true;
    FakeBus::tell(recorder_, bluez::kDevice, {{"Connected", sdbus::Variant(true)}});
    answer(call);
    resolve();
  }

  void resolve() {
    if (!is_.connected || state_["resolve"] != "on" || is_.resolved) return;
    int number = 0;
    for (const auto& source : link_->characteristics()) {
      const auto path = recorder_->getObjectPath() + "/service0001/char" + std::to_string(++number);
      if (gattAt(path) || source->UUID().toString().find(state_["lack"]) != std::string::npos) continue;
      gatts_.emplace_back(bus_, path, source, static_cast<std::uint16_t>(std::stoul(state_["mtu"])));
    }
    is_.resolved = true;
    FakeBus::tell(recorder_, bluez::kDevice, {{"ServicesResolved", sdbus::Variant(true)}});
  }

  void lose() {
    if (!is_.connected.exchange(false)) return;
    link_->disconnect();
    is_.resolved = false;
    failHeld();
    late_.clear();
    course_.end();
    for (auto& gatt : gatts_) {
      if (gatt.running) answer(CallPtr(gatt.running), kFailed);
      auto stream = gatt.end();
      if (state_["linger"] == "on") lingering_.push_back(std::move(stream));
    }
    FakeBus::tell(recorder_, bluez::kDevice,
                  {{"Connected", sdbus::Variant(false)}, {"ServicesResolved", sdbus::Variant(false)}});
    for (auto& gatt : gatts_) {
      if (gatt.id().find(state_["keep"]) == std::string::npos) FakeBus::withdraw(gatt.object);
    }
    std::erase_if(gatts_, [](const FakeGatt& gatt) { return gatt.object == nullptr; });
  }

  FakeGatt* gattAt(const std::string& path) {
    const auto found = std::ranges::find(gatts_, path, &FakeGatt::path);
    return found == gatts_.end() ? nullptr : &*found;
  }

  /// What the link has told: a value, or the outcome of a write.
  void tellOf(const std::shared_ptr<Characteristic>& source, const std::optional<Bytes>& value, bool failed) {
    const auto gatt = std::ranges::find(gatts_, source, &FakeGatt::source);
    if (gatt == gatts_.end()) return;
    if (!value && gatt->running) {
      late_.emplace_back(gatt->running, failed ? kFailed : "");
      course_.begin(gatt->running->value);
      goOn();
      acknowledge();
    }
    if (!value || !gatt->notifying) return;
    journal_->add("notified " + gatt->id().substr(4, 4));
    gatt->pass(*value);
    course_.passed();
    goOn();
  }

  std::shared_ptr<sim::SimulatedLink> link_;
  const std::shared_ptr<Journal> journal_;
  // What obey() was told; a method's is "hold", or the D-Bus name of the error that refuses it.
  std::map<std::string, std::string> state_{{"adapter", "on"}, {"power", "on"},     {"heard", "on"},
                                            {"resolve", "on"}, {"stranger", "off"}, {"mtu", "247"},
                                            {"lack", "none"},  {"keep", "none"},    {"linger", "off"}};
  std::atomic<bool> power_{false};  // a property
  DeviceState is_;
  bool discovering_ = false;
  std::vector<CallPtr> held_;
  std::vector<std::pair<CallPtr, std::string>> late_;  // and their errors
  Object adapter_, stranger_, recorder_;               // the stranger is known from earlier and not heard now
  std::vector<FakeGatt> gatts_;
  Course course_;
  std::vector<sdbus::UnixFd> lingering_;
  FakeBus bus_;  // last, so that its thread ends first
};

}  // namespace kwtsdk::testing
