#include "platform/bluez/connector.h"

#include <memory>
#include <utility>

#include "platform/bluez/discovery.h"

namespace kwtsdk::bluez {

void Connector::step(ConnectStep step) const {
  if (options_.onStep) options_.onStep(step);
}

void Connector::run(const Adopt& adopt) {
  client_.load();
  adapter_ = usableAdapter(client_, adapterName_);
  const std::string device = find();
  if (!tryInherited(device, adopt)) reach(device, adopt);
}

/// A connection that somebody has left, as a killed host or bluetoothd does, may be about to end: losing it
/// is no failure yet.
bool Connector::tryInherited(const std::string& device, const Adopt& adopt) {
  if (!isConnected(device)) return false;
  try {
    reach(device, adopt);
    return true;
  } catch (const Trouble& trouble) {
    if (trouble.error() != errorOf(Problem::connectionLost, address_)) throw;
    return false;
  }
}

bool Connector::isConnected(const std::string& device) const {
  return client_.look([&](const Objects& objects) { return objects.isTrue(device, kDevice, "Connected"); });
}

void Connector::reach(const std::string& device, const Adopt& adopt) {
  try {
    join(device);
    adopt(discover(device));
  } catch (...) {
    giveUp(device);
    throw;
  }
}

/// Waits for the answer: until then the device counts as connected, and the next attempt would rely on that.
void Connector::giveUp(const std::string& device) {
  if (client_.gone()) return;
  const bool cancelled = client_.resume();
  attempted([&] {
    client_.call({device, kDevice, "Disconnect"}, noArguments, kPrompt, Problem::noConnection);
  });
  if (cancelled) client_.cancel();  // also what may follow
}

/// BlueZ knows a device that it heard a short while ago.
std::string Connector::find() {
  step(ConnectStep::searching);
  std::string device;
  const auto known = [&](const Objects& objects) {
    expectPower(objects, adapter_);
    device = objects.deviceAt(adapter_, address_);
    return !device.empty();
  };
  if (client_.look(known)) return device;
  const Discovery discovery(client_, adapter_);
  if (!client_.waitFor(known, options_.searching)) throw Trouble(Problem::deviceNotFound, address_);
  return device;
}

/// What is true at the moment of the answer only the bus's thread can tell: a loss may follow at once.
void Connector::join(const std::string& device) {
  step(ConnectStep::connecting);
  connected_ = isConnected(device);
  if (connected_) return;
  const auto connected = std::make_shared<bool>(false);  // the answer may come after this has given up
  client_.call({device, kDevice, "Connect"}, noArguments, options_.connecting, Problem::noConnection,
               [&client = client_, device, connected](sdbus::MethodReply&) {
                 *connected = client.look(
                     [&](const Objects& objects) { return objects.isTrue(device, kDevice, "Connected"); });
               });
  connected_ = *connected;
  // Seen with BlueZ 5.66: when its data channel is there before the controller's word of the connection, it
  // sets Connected, but never announces it.
  client_.load();
}

ConnectedDevice Connector::discover(const std::string& device) {
  step(ConnectStep::discovering);
  const auto resolved = [&](const Objects& objects) {
    expectPower(objects, adapter_);
    const bool was = std::exchange(connected_, objects.isTrue(device, kDevice, "Connected"));
    if (was && !connected_) throw Trouble(Problem::connectionLost, address_);
    return connected_ && objects.isTrue(device, kDevice, "ServicesResolved");
  };
  // BlueZ may have answered before it tells that the device is connected.
  if (!client_.waitFor(resolved, options_.discovering)) throw Trouble(Problem::noServices, address_);
  client_.load();  // with the ATT MTU, which BlueZ does not announce
  auto characteristics =
      client_.look([&](const Objects& objects) { return objects.characteristicsOf(device); });
  if (!client_.look(resolved)) throw Trouble(Problem::connectionLost, address_);  // which takes them along
  if (characteristics.empty()) throw Trouble(Problem::noServices, address_);
  return {device, std::move(characteristics)};
}

}  // namespace kwtsdk::bluez
