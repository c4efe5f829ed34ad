// What travels over a device's connection: asked for on any thread, done on the events' thread.

#include <algorithm>
#include <map>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {
namespace {

using gatt::Operation;

// BlueZ gives up a request that the device does not answer within 30 s, and the connection with it.
constexpr Duration kGattLimit = std::chrono::seconds(40);

const char* methodOf(Operation::Kind kind) {
  switch (kind) {
    case Operation::Kind::subscribe:
      return "StartNotify";
    case Operation::Kind::unsubscribe:
      return "StopNotify";
    default:
      return "WriteValue";
  }
}

void addArguments(sdbus::MethodCall& call, const Operation& operation) {
  if (operation.kind == Operation::Kind::subscribe || operation.kind == Operation::Kind::unsubscribe) return;
  const std::string type = operation.kind == Operation::Kind::write ? "request" : "command";
  call << operation.value << std::map<std::string, sdbus::Variant>{{"type", sdbus::Variant(type)}};
}

}  // namespace

void DeviceCore::post(Work work) {
  queue_.async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

std::function<void(DeviceCore::Work)> DeviceCore::poster() {
  return [weak = weak_from_this()](Work work) {
    if (const auto self = weak.lock()) self->post(std::move(work));
  };
}

void DeviceCore::writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& target,
                            WriteType type) {
  postOperation(
      type == WriteType::withResponse ? Operation::Kind::write : Operation::Kind::writeWithoutResponse,
      target, value);
}

void DeviceCore::setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& target) {
  postOperation(enabled ? Operation::Kind::subscribe : Operation::Kind::unsubscribe, target, {});
}

void DeviceCore::postOperation(Operation::Kind kind, const std::shared_ptr<Characteristic>& target,
                               const Bytes& value) {
  post([operation = Operation{kind, ours(target), value}, target](DeviceCore& core) {
    core.add(operation, target);
  });
}

DeviceCore::CharacteristicPtr DeviceCore::ours(const std::shared_ptr<Characteristic>& characteristic) const {
  const internal::MutexLock lock(mutex_);
  const auto found = std::ranges::find(characteristics_, characteristic);
  return found == characteristics_.end() ? nullptr : *found;
}

void DeviceCore::add(Operation operation, const std::shared_ptr<Characteristic>& asked) {
  const auto connection = connection_;
  if (operation.target && connection && state() == PeripheralState::connected) {
    connection->operations.add(std::move(operation));
  } else if (operation.kind == Operation::Kind::write) {
    events_.didWrite(shared_from_this(), asked, errorOf(Problem::connectionLost));
  }
}

void DeviceCore::send(Connection& connection, const Operation& operation) {
  if (state() != PeripheralState::connected) return;  // its end is on the way and reports the operation
  const auto& target = static_cast<const BluezCharacteristic&>(*operation.target);  // one of ours()
  connection.client->start(
      {target.path(), kCharacteristic, methodOf(operation.kind)},
      [&](sdbus::MethodCall& call) { addArguments(call, operation); }, kGattLimit,
      [post = poster(), attempt = connection.attempt](const MaybeError& error) {
        post([attempt, error](DeviceCore& core) { core.answered(attempt, error); });
      });
}

void DeviceCore::answered(Attempt attempt, const MaybeError& error) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt) return;
  // No answer at all: BlueZ is still busy with it, and would refuse the next as InProgress.
  if (error && isProblem(*error, Problem::connectionLost)) disconnect();
  connection->operations.finished(error);
}

void DeviceCore::valueChanged(Attempt attempt, const std::string& path, const Bytes& value) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt || state() != PeripheralState::connected) return;
  for (const auto& characteristic : characteristics()) {
    if (characteristic->path() != path || !connection->operations.isSubscribed(characteristic)) continue;
    characteristic->setValue(value);
    events_.didUpdate(shared_from_this(), characteristic, std::nullopt);
  }
}

/// After anything has changed: whether the connection is still there. `ended` is the device whose connection
/// BlueZ said has ended, which another one may have followed by now.
void DeviceCore::check(Attempt attempt, const std::string& ended) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt) return;
  const MaybeError gone = connection->client->gone();
  if (isLeaving()) {
    if (gone) left(attempt);  // nobody is going to answer
    return;
  }
  const bool connected = ended != connection->device && connection->client->look([&](const Objects& objects) {
    return objects.isTrue(connection->device, kDevice, "Connected");
  });
  if (!connected) lose(gone ? *gone : errorOf(Problem::connectionLost, address_));
}

void DeviceCore::lose(const Error& reason) {
  {
    const internal::MutexLock lock(mutex_);
    if (state_ != PeripheralState::connected) return;  // disconnect() came first, and has posted its own end
    state_ = PeripheralState::disconnected;
    // Behind the writes that are asked for already, which fail.
    post([](DeviceCore& core) { core.events_.didDisconnect(); });
  }
  const auto connection = std::exchange(connection_, nullptr);
  connection->operations.end(reason);
}

void DeviceCore::leave(Attempt attempt) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt) return;  // lost meanwhile
  if (connection->client->gone()) return left(attempt);
  connection->operations.end(errorOf(Problem::connectionLost));
  connection->client->start({connection->device, kDevice, "Disconnect"}, noArguments, kLeaveLimit,
                            [post = poster(), attempt](const MaybeError&) {
                              post([attempt](DeviceCore& core) { core.left(attempt); });
                            });
}

void DeviceCore::left(Attempt attempt) {
  {
    const internal::MutexLock lock(mutex_);
    if (state_ != PeripheralState::disconnecting || !connection_ || connection_->attempt != attempt) return;
    state_ = PeripheralState::disconnected;
    post([](DeviceCore& core) { core.events_.didDisconnect(); });
  }
  const auto connection = std::exchange(connection_, nullptr);
  connection->operations.end(errorOf(Problem::connectionLost));
  departures_->end(address_);
  finishWhenLeft();
}

/// The connection to the bus has to last until BlueZ has answered.
void DeviceCore::finishWhenLeft() {
  if (self_ && !isLeaving()) finish();
}

}  // namespace kwtsdk::bluez
