// What happens on the events' thread.

#include <map>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {
namespace {

// BlueZ gives up a request that the device does not answer within 30 s, and the connection with it.
constexpr Duration kGattLimit = std::chrono::seconds(40);

const char* methodOf(GattOperation::Kind kind) {
  switch (kind) {
    case GattOperation::Kind::subscribe:
      return "StartNotify";
    case GattOperation::Kind::unsubscribe:
      return "StopNotify";
    default:
      return "WriteValue";
  }
}

void addArguments(sdbus::MethodCall& call, const GattOperation& operation) {
  if (operation.kind == GattOperation::Kind::subscribe || operation.kind == GattOperation::Kind::unsubscribe)
    return;
  const std::string type = operation.kind == GattOperation::Kind::write ? "request" : "command";
  call << operation.value << std::map<std::string, sdbus::Variant>{{"type", sdbus::Variant(type)}};
}

}  // namespace

void DeviceCore::add(GattOperation operation, const std::shared_ptr<Characteristic>& asked) {
  const auto connection = connection_;
  if (operation.target && connection && state_ == PeripheralState::connected) {
    connection->operations.add(std::move(operation));
  } else if (operation.kind == GattOperation::Kind::write) {
    deliver(&Events::didWrite, asked, errorOf(Problem::connectionLost));
  }
}

void DeviceCore::send(Connection& connection, const GattOperation& operation) {
  if (state_ != PeripheralState::connected) return;  // its end is on the way and reports the operation
  connection.client->start(
      {operation.target->path(), kCharacteristic, methodOf(operation.kind)},
      [&](sdbus::MethodCall& call) { addArguments(call, operation); }, kGattLimit,
      [post = poster(), attempt = connection.attempt](const MaybeError& error) {
        post([attempt, error](DeviceCore& core) { core.answered(attempt, error); });
      });
}

void DeviceCore::answered(Attempt attempt, const MaybeError& error) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt) return;
  // No answer at all: what comes later would meet InProgress.
  if (error && isProblem(*error, Problem::connectionLost)) disconnect();
  connection->operations.finished(error);
}

void DeviceCore::valueChanged(Attempt attempt, const std::string& path, const Bytes& value) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt || state_ != PeripheralState::connected) return;
  for (const auto& characteristic : characteristics()) {
    if (characteristic->path() != path || !connection->operations.isSubscribed(characteristic)) continue;
    characteristic->setValue(value);
    deliver(&Events::didUpdate, characteristic, std::nullopt);
  }
}

/// After anything has changed: whether the connection is still there.
void DeviceCore::check(Attempt attempt, const std::string& ended) {
  const auto connection = connection_;
  if (!connection || connection->attempt != attempt) return;
  const MaybeError gone = connection->client->gone();
  if (state_ == PeripheralState::disconnecting) {
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
    const std::lock_guard lock(mutex_);
    if (state_ != PeripheralState::connected) return;  // disconnect() came first, and has posted its own end
    state_ = PeripheralState::disconnected;
    post([](DeviceCore& core) { core.tellDisconnected(); });  // behind the writes asked for, which fail
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
    const std::lock_guard lock(mutex_);
    if (state_ != PeripheralState::disconnecting || !connection_ || connection_->attempt != attempt) return;
    state_ = PeripheralState::disconnected;
    post([](DeviceCore& core) { core.tellDisconnected(); });
  }
  const auto connection = std::exchange(connection_, nullptr);
  connection->operations.end(errorOf(Problem::connectionLost));
  departures_->end(address_);
  finishWhenLeft();
}

void DeviceCore::tellDisconnected() {
  std::unique_lock lock(mutex_);
  const auto onDisconnect = onDisconnect_;
  lock.unlock();
  if (onDisconnect) onDisconnect();
}

void DeviceCore::deliver(Device::Event Events::*event, const std::shared_ptr<Characteristic>& source,
                         const MaybeError& error) {
  std::unique_lock lock(mutex_);
  const auto events = events_;
  const auto peripheral = peripheral_.lock();
  lock.unlock();
  const auto& callback = (*events).*event;
  if (callback && peripheral) callback(peripheral, source, error);
}

}  // namespace kwtsdk::bluez
