#include "platform/bluez/connector.h"

#include <utility>

namespace kwtsdk::bluez {

std::shared_ptr<Departures> Departures::ofThisProcess() {
  static const auto all = std::make_shared<Departures>();
  return all;
}

void Departures::begin(const std::string& address) {
  const internal::MutexLock lock(mutex_);
  ++underWay_[address].count;
}

void Departures::end(const std::string& address) {
  std::vector<std::shared_ptr<Semaphore>> waiters;
  {
    const internal::MutexLock lock(mutex_);
    const auto found = underWay_.find(address);
    if (--found->second.count > 0) return;
    waiters = std::move(found->second.waiters);
    underWay_.erase(found);
  }
  for (const auto& waiter : waiters) waiter->signal();
}

bool Departures::await(Scheduler& scheduler, const std::string& address, Duration limit) {
  const auto ended = scheduler.semaphore("kwt.bluez.left");
  {
    const internal::MutexLock lock(mutex_);
    const auto found = underWay_.find(address);
    if (found == underWay_.end()) return true;
    found->second.waiters.push_back(ended);
  }
  return ended->wait(limit);
}

void Connector::run(const Adopt& adopt) {
  if (!askForBoth()) {
    client_.await(client_.askForObjects());
    isLoaded_ = true;
    adapter_ = client_.look([&](const Objects& objects) { return objects.usableAdapter(adapterName_); });
  }
  establish(find(), adopt);
}

void Connector::step(ConnectStep step) const {
  if (options_.onStep) options_.onStep(step);
}

/// Asks for the adapter and the device alone, as all objects take the longer the more devices BlueZ has ever
/// met. False: one is missing, or the adapter has no power; then all objects decide.
bool Connector::askForBoth() {
  const std::string adapter = "/org/bluez/" + (adapterName_.empty() ? "hci0" : adapterName_);
  const auto failure = attempted([&] {
    const auto ofAdapter = client_.askFor(adapter, kAdapter);
    const auto ofDevice = client_.askFor(adapter + "/" + pathPartOf(address_), kDevice);
    client_.await(ofAdapter);
    client_.await(ofDevice);
  });
  // UnknownObject is a connectionLost too.
  if (failure && failure->domain() == kDomain && !isProblem(*failure, Problem::connectionLost))
    throw BluezError(*failure);
  const auto hasPower = [&](const Objects& objects) { return objects.isTrue(adapter, kAdapter, "Powered"); };
  if (failure || !client_.look(hasPower)) return false;
  adapter_ = adapter;
  return true;
}

/// BlueZ still knows a device that it heard a short while ago; only for others it has to listen.
std::string Connector::find() {
  step(ConnectStep::searching);
  std::string device;
  const auto known = [&](const Objects& objects) {
    objects.expectPower(adapter_);
    device = objects.deviceAt(adapter_, address_);
    return !device.empty();
  };
  if (client_.look(known)) return device;
  const Discovery discovery(client_, adapter_);
  if (!client_.waitFor(known, options_.searching)) throw BluezError(Problem::deviceNotFound, address_);
  return device;
}

void Connector::establish(const std::string& device, const Adopt& adopt) {
  try {
    step(ConnectStep::connecting);
    if (isConnected(device)) endInherited(device);
    connect(device);
    adopt(discover(device));
  } catch (...) {
    giveUp(device);
    throw;
  }
}

/// One that is there already is another program's, or was left behind by one that was killed. What that has
/// begun goes on over it, such as the packets of a download, among which no answer would be found.
void Connector::endInherited(const std::string& device) {
  const auto refusal = attempted([&] {
    client_.call({device, kDevice, "Disconnect"}, noArguments, options_.connecting, Problem::noConnection);
  });
  if (refusal && refusal->domain() == kDomain) throw BluezError(*refusal);
  // BlueZ refuses when it has ended meanwhile.
  const auto isOver = [&](const Objects& objects) { return !objects.isTrue(device, kDevice, "Connected"); };
  if (!client_.waitFor(isOver, kPrompt))
    throw BluezError(Problem::noConnection, "BlueZ has not ended the connection before");
}

void Connector::connect(const std::string& device) {
  // Looked up on the loop's thread, as the answer arrives: a loss may follow before this thread runs again,
  // and would then look like a connection that BlueZ has not announced yet. Shared, since the answer may come
  // after this has given up.
  const auto connected = std::make_shared<bool>(false);
  const auto connecting = client_.ask(
      {device, kDevice, "Connect"}, noArguments, [&client = client_, device, connected](sdbus::MethodReply&) {
        *connected =
            client.look([&](const Objects& objects) { return objects.isTrue(device, kDevice, "Connected"); });
      });
  // While the radio is at work. Announcements alone would miss characteristics that BlueZ has kept from an
  // earlier connection.
  const auto loading = isLoaded_ ? nullptr : client_.askForObjects();
  client_.await(connecting, options_.connecting, Problem::noConnection);
  connected_ = *connected;
  if (loading) client_.await(loading);
  // BlueZ 5.66 sets Connected, but never announces it, when its data channel is there before the controller
  // has told of the connection.
  if (!connected_) client_.await(client_.askFor(device, kDevice));
}

ConnectedDevice Connector::discover(const std::string& device) {
  step(ConnectStep::discovering);
  // Connected may become true only after the answer to Connect.
  const auto resolved = [&](const Objects& objects) {
    objects.expectPower(adapter_);
    const bool seen = std::exchange(connected_, objects.isTrue(device, kDevice, "Connected"));
    if (seen && !connected_) throw BluezError(Problem::connectionLost, address_);
    return connected_ && objects.isTrue(device, kDevice, "ServicesResolved");
  };
  if (!client_.waitFor(resolved, options_.discovering)) throw BluezError(Problem::noServices, address_);
  auto characteristics = askForCharacteristics(device);
  // A lost connection takes them along: that there are none means something only while it is there.
  if (!client_.look(resolved)) throw BluezError(Problem::connectionLost, address_);
  if (characteristics.empty()) throw BluezError(Problem::noServices, address_);
  return {device, std::move(characteristics)};
}

/// BlueZ announces them, but perhaps only after ServicesResolved: before the next answer. It does not
/// announce the ATT MTU, so that is asked of the first, which may be one that is about to be withdrawn.
std::vector<Objects::Characteristic> Connector::askForCharacteristics(const std::string& device) {
  const auto known = [&] {
    return client_.look([&](const Objects& objects) { return objects.characteristicsOf(device); });
  };
  const auto askForMtu = [&] {
    const auto characteristics = known();
    if (!characteristics.empty())
      client_.await(client_.askFor(characteristics.front().path, kCharacteristic));
    return !characteristics.empty();
  };
  bool isTold = false;
  attempted([&] { isTold = askForMtu(); });
  if (!isTold) {
    client_.await(client_.askFor(device, kDevice));
    if (known().empty()) client_.await(client_.askForObjects());
    askForMtu();
  }
  return known();
}

/// Waits for the answer: until then the device may count as connected, and the next attempt would take that
/// over.
void Connector::giveUp(const std::string& device) {
  if (client_.gone()) return;
  const bool cancelled = client_.resume();  // else the call would not wait
  attempted([&] {
    client_.call({device, kDevice, "Disconnect"}, noArguments, kPrompt, Problem::noConnection);
  });
  if (cancelled) client_.cancel();  // whatever else this attempt may begin
}

bool Connector::isConnected(const std::string& device) const {
  return client_.look([&](const Objects& objects) { return objects.isTrue(device, kDevice, "Connected"); });
}

}  // namespace kwtsdk::bluez
