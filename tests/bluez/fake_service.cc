#include "tests/bluez/fake_service.h"

#include <algorithm>
#include <utility>

#include "platform/bluez/objects.h"
#include "sim/model/wire.h"

namespace kwtsdk::testing {

using bluez::kAdapter;
using bluez::kCharacteristic;
using bluez::kDevice;

namespace {

constexpr const char *kAdapterPath = "/org/bluez/hci0", *kFailed = "org.bluez.Error.Failed";

std::string devicePath(std::string address) {
  std::ranges::replace(address, ':', '_');
  return std::string(kAdapterPath).append("/dev_").append(address);
}

}  // namespace

FakeService::FakeService(const FakeState& state, sim::SimulatedLink& link, Journal& journal)
    : state_(state), link_(link), journal_(journal), connection_(sdbus::createSystemBusConnection()) {
  connection_->addObjectManager("/", sdbus::floating_slot);
  follow();
  connection_->requestName("org.bluez");
}

void FakeService::follow() {
  if (state_.adapter != (adapter_ != nullptr)) state_.adapter ? addAdapter() : removeAdapter();
  if (adapter_ && std::exchange(power_, state_.power) != state_.power) {
    tell(adapter_, kAdapter, {{"Powered", sdbus::Variant(power_)}});
    if (!power_) lose();
  }
  if (discovering_) hear();
  resolve();
  std::vector<HeldCall> released;  // whose work may fail what is still held
  for (auto& [method, calls] : held_) {
    if (isHeld(method)) continue;
    for (auto& held : std::exchange(calls, {})) released.push_back(std::move(held));
  }
  for (const auto& held : released) held.work();
}

// Calls

template <class... Arguments>
void FakeService::addMethod(const Object& object, const char* interface, const char* method, auto work) {
  object->registerMethod(method).onInterface(interface).implementedAs(
      [method, work = std::move(work)](sdbus::Result<>&& result, const Arguments&... arguments) {
        work(std::make_shared<Call>(Call{method, std::move(result)}), arguments...);
      });
}

void FakeService::take(const CallPtr& call, const std::string& detail, std::function<void()> work) {
  journal_.add(detail.empty() ? call->method : call->method + " " + detail);
  const auto refused = state_.refused.find(call->method);
  if (refused != state_.refused.end()) return answer(call, refused->second);
  if (isHeld(call->method)) return held_[call->method].push_back({call, std::move(work)});
  work();
}

void FakeService::answer(const CallPtr& call, const std::string& error) {
  for (const auto& gatt : gatts_) {
    if (gatt->running == call) gatt->running = nullptr;
  }
  if (error.empty()) {
    call->result.returnResults();
  } else {
    call->result.returnError(sdbus::Error(error, "as the test asks"));
  }
  journal_.add(call->method + " answered");
}

bool FakeService::isHeld(const std::string& method) const {
  return state_.held.contains(method) || (method == "Connect" && !state_.heard);
}

void FakeService::failHeld() {
  for (const auto& [method, calls] : std::exchange(held_, {})) {
    for (const auto& held : calls) answer(held.call, kFailed);
  }
}

// Objects

void FakeService::publish(const Object& object) {
  object->finishRegistration();
  object->emitInterfacesAddedSignal();
}

void FakeService::withdraw(Object& object) {
  if (object) object->emitInterfacesRemovedSignal();
  object = nullptr;
}

void FakeService::tell(const Object& object, const char* interface, const Properties& changed,
                       const std::vector<std::string>& invalidated) {
  auto signal = object->createSignal(bluez::kProperties, "PropertiesChanged");
  signal << std::string(interface) << changed << invalidated;
  object->emitSignal(signal);
}

void FakeService::addAdapter() {
  adapter_ = sdbus::createObject(*connection_, kAdapterPath);
  power_ = state_.power;
  adapter_->registerProperty("Powered").onInterface(kAdapter).withGetter([this] { return power_; });
  addMethod<Properties>(adapter_, kAdapter, "SetDiscoveryFilter", [this](const CallPtr& call, const auto&) {
    take(call, "", [this, call] { answer(call); });
  });
  for (const bool on : {true, false}) {
    addMethod<>(adapter_, kAdapter, on ? "StartDiscovery" : "StopDiscovery", [this, on](const CallPtr& call) {
      take(call, "", [this, call, on] {
        discover(on);
        answer(call);
      });
    });
  }
  publish(adapter_);
  stranger_ = device("11:22:33:44:55:66", false);
}

void FakeService::removeAdapter() {
  lose();
  for (auto* const object : {&recorder_, &stranger_, &adapter_}) withdraw(*object);
  discovering_ = false;
}

void FakeService::discover(bool on) {
  discovering_ = on;
  if (on) return hear();
  if (recorder_) tell(recorder_, kDevice, {}, {"RSSI"});
}

void FakeService::hear() {
  if (!state_.heard) {
    if (!connected_) withdraw(recorder_);
  } else if (recorder_) {
    tell(recorder_, kDevice, {{"RSSI", sdbus::Variant(std::int16_t(-60))}});
  } else {
    recorder_ = device(kRecorderAddress, true);
  }
}

FakeService::Object FakeService::device(const std::string& address, bool heard) {
  auto made = sdbus::createObject(*connection_, devicePath(address));
  const auto add = [&](const char* name, auto getter) {
    made->registerProperty(name).onInterface(kDevice).withGetter(std::move(getter));
  };
  add("Address", [address] { return address; });
  add("Name", [heard] { return std::string(heard ? "Recorder" : "Stranger"); });
  add("UUIDs", [] { return std::vector<std::string>{sim::wire::kRecorderService}; });
  add("Connected", [this, heard] { return heard && connected_; });
  add("ServicesResolved", [this, heard] { return heard && resolved_; });
  if (heard) add("RSSI", [] { return std::int16_t(-50); });
  addMethod<>(made, kDevice, "Connect",
              [this](const CallPtr& call) { take(call, "", [this, call] { connect(call); }); });
  addMethod<>(made, kDevice, "Disconnect", [this](const CallPtr& call) {
    take(call, "", [this, call] {
      lose();
      failHeld();
      answer(call);
    });
  });
  publish(made);
  return made;
}

// A connection

void FakeService::connect(const CallPtr& call) {
  if (connected_) return answer(call);
  link_.connect();
  connected_ = true;
  tell(recorder_, kDevice, {{"Connected", sdbus::Variant(true)}});
  answer(call);
  resolve();
}

void FakeService::resolve() {
  if (!connected_ || !state_.resolve || std::exchange(resolved_, true)) return;
  for (const auto& characteristic : link_.characteristics()) {
    if (characteristic->UUID().toString().find(state_.lacking) == std::string::npos) addGatt(characteristic);
  }
  tell(recorder_, kDevice, {{"ServicesResolved", sdbus::Variant(true)}});
}

void FakeService::lose() {
  if (!std::exchange(connected_, false)) return;
  link_.disconnect();
  resolved_ = false;
  failHeld();
  for (const auto& gatt : gatts_) {
    if (gatt->running) answer(CallPtr(gatt->running), kFailed);
  }
  tell(recorder_, kDevice,
       {{"Connected", sdbus::Variant(false)}, {"ServicesResolved", sdbus::Variant(false)}});
  for (const auto& gatt : gatts_) withdraw(gatt->object);
  gatts_.clear();
}

void FakeService::addGatt(const std::shared_ptr<Characteristic>& characteristic) {
  const auto path = devicePath(kRecorderAddress) + "/service0001/char" + std::to_string(gatts_.size());
  Gatt& gatt = *gatts_.emplace_back(new Gatt{characteristic, sdbus::createObject(*connection_, path)});
  const auto add = [&](const char* name, auto getter) {
    gatt.object->registerProperty(name).onInterface(kCharacteristic).withGetter(std::move(getter));
  };
  std::vector<std::string> flags;
  if ((characteristic->properties() & characteristic_property::write) != 0) flags.emplace_back("write");
  if ((characteristic->properties() & characteristic_property::notify) != 0) flags.emplace_back("notify");
  add("UUID", [characteristic] { return characteristic->UUID().toString(); });
  add("Flags", [flags] { return flags; });
  add("MTU", [this] { return state_.mtu; });
  addMethod<Bytes, Properties>(
      gatt.object, kCharacteristic, "WriteValue",
      [this, &gatt](const CallPtr& call, const Bytes& value, const Properties& options) {
        takeGatt(gatt, call, [=, this, &gatt] { write(gatt, call, value, options); });
      });
  for (const bool on : {true, false}) {
    addMethod<>(gatt.object, kCharacteristic, on ? "StartNotify" : "StopNotify",
                [this, &gatt, on](const CallPtr& call) {
                  takeGatt(gatt, call, [this, &gatt, call, on] { setNotify(gatt, call, on); });
                });
  }
  publish(gatt.object);
}

void FakeService::takeGatt(Gatt& gatt, const CallPtr& call, std::function<void()> work) {
  if (std::ranges::any_of(gatts_, [](const auto& each) { return each->running != nullptr; }))
    journal_.add("overlap");
  if (gatt.running) return answer(call, "org.bluez.Error.InProgress");
  gatt.running = call;
  take(call, gatt.characteristic->UUID().toString().substr(4, 4), std::move(work));
}

void FakeService::write(Gatt& gatt, const CallPtr& call, const Bytes& value, const Properties& options) {
  const bool request = options.at("type").get<std::string>() == "request";
  link_.peripheral()->writeValue(value, gatt.characteristic,
                                 request ? WriteType::withResponse : WriteType::withoutResponse);
  if (!request) answer(call);
}

void FakeService::setNotify(Gatt& gatt, const CallPtr& call, bool enabled) {
  gatt.notifying = enabled;
  link_.peripheral()->setNotifyValue(enabled, gatt.characteristic);
  answer(call);
}

FakeService::Gatt* FakeService::gattOf(const Characteristic& characteristic) {
  const auto found = std::ranges::find_if(
      gatts_, [&](const auto& gatt) { return gatt->characteristic.get() == &characteristic; });
  return found == gatts_.end() ? nullptr : found->get();
}

void FakeService::didWrite(const Characteristic& source, const MaybeError& error) {
  const Gatt* const gatt = gattOf(source);
  if (gatt != nullptr && gatt->running) answer(CallPtr(gatt->running), error ? kFailed : "");
}

void FakeService::didUpdate(const Characteristic& source, const Bytes& value) {
  const Gatt* const gatt = gattOf(source);
  if (gatt != nullptr && gatt->notifying)
    tell(gatt->object, kCharacteristic, {{"Value", sdbus::Variant(value)}});
}

}  // namespace kwtsdk::testing
