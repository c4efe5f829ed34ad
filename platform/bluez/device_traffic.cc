// What travels over a device's connection: asked for on any thread, done on the events' thread.

#include <fcntl.h>

#include <algorithm>
#include <utility>

#include "platform/bluez/device_core.h"
#include "platform/bluez/message.h"

namespace kwtsdk::bluez {
namespace {

using gatt::Operation;

// BlueZ gives up a request that the device does not answer within 30 s, and the connection with it.
constexpr Duration kGattLimit = std::chrono::seconds(40);

void addArguments(sd_bus_message* call, const Operation& operation) {
  const char* const type = operation.kind == Operation::Kind::write ? "request" : "command";
  expectGood(
      sd_bus_message_append_array(call, SD_BUS_TYPE_BYTE, operation.value.data(), operation.value.size()));
  expectGood(sd_bus_message_append(call, "a{sv}", 1, "type", "s", type));
}

}  // namespace

void DeviceCore::post(Work work) {
  loop_.post([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

std::function<void(const DeviceCore::Work&)> DeviceCore::whileThere() {
  return [weak = weak_from_this()](const Work& work) {
    if (const auto self = weak.lock()) work(*self);
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
  post([operation = Operation{kind, ours(target), value}, target](DeviceCore& core) mutable {
    core.add(std::move(operation), target);
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
  switch (operation.kind) {
    case Operation::Kind::subscribe:
      return subscribe(connection, operation);
    case Operation::Kind::unsubscribe:
      connection.hidden.insert(operation.target.get());  // BlueZ goes on
      return connection.operations.finished(std::nullopt);
    default:
      return write(connection, operation);
  }
}

void DeviceCore::write(Connection& connection, const Operation& operation) {
  if (operation.kind == Operation::Kind::write) connection.notifications->hold();
  if (state() != PeripheralState::connected) return;                                // an event has ended it
  const auto& target = static_cast<const BluezCharacteristic&>(*operation.target);  // one of ours()
  connection.client->start(
      {target.path(), kCharacteristic, "WriteValue"},
      [&](sd_bus_message* call) { addArguments(call, operation); }, kGattLimit,
      [run = whileThere(), attempt = connection.attempt](const MaybeError& error) {
        run([&](DeviceCore& core) { core.answered(attempt, error); });
      });
}

/// Through a descriptor notifications cost a quarter of what they cost over the bus. Where BlueZ does not
/// give one, because another program has it or the bus forbids it, they come over the bus.
void DeviceCore::subscribe(Connection& connection, const Operation& operation) {
  const auto target = std::static_pointer_cast<BluezCharacteristic>(operation.target);  // one of ours()
  const bool wasHidden = connection.hidden.erase(target.get()) != 0;
  if (connection.on.contains(target.get())) {
    if (wasHidden) connection.notifications->drop(target);  // no answer to what is asked from now on
    return connection.operations.finished(std::nullopt);
  }
  if (!connection.offering.contains(target.get())) return startNotify(connection, target);
  const auto descriptor = std::make_shared<internal::Descriptor>();
  connection.client->start(
      {target->path(), kCharacteristic, "AcquireNotify"},
      [](sd_bus_message* call) { expectGood(sd_bus_message_append(call, "a{sv}", 0)); }, kGattLimit,
      [run = whileThere(), attempt = connection.attempt, target, descriptor](const MaybeError& error) {
        run([&](DeviceCore& core) {
          const auto current = core.connectionIn(attempt);
          if (!current) return;
          const bool isRefused = error && !isProblem(*error, Problem::connectionLost);
          if (isRefused && !core.isLeaving()) return core.startNotify(*current, target);
          if (!error) current->notifications->add(target, std::move(*descriptor));
          core.subscribed(attempt, target, Way::descriptor, error);
        });
      },
      [descriptor](sdbus::MethodReply& reply) {
        *descriptor = internal::Descriptor(::fcntl(Reader(reply).descriptor(), F_DUPFD_CLOEXEC, 0));
        if (descriptor->get() < 0) throw BluezError(Problem::busFailure, "no descriptor is left");
      });
}

void DeviceCore::startNotify(Connection& connection, const CharacteristicPtr& target) {
  connection.client->start(
      {target->path(), kCharacteristic, "StartNotify"}, noArguments, kGattLimit,
      [run = whileThere(), attempt = connection.attempt, target](const MaybeError& error) {
        run([&](DeviceCore& core) { core.subscribed(attempt, target, Way::bus, error); });
      });
}

void DeviceCore::subscribed(Attempt attempt, const CharacteristicPtr& target, Way way,
                            const MaybeError& error) {
  const auto connection = connectionIn(attempt);
  if (!connection) return;
  if (!error) connection->on.emplace(target.get(), way);
  answered(attempt, error);
}

void DeviceCore::answered(Attempt attempt, const MaybeError& error) {
  const auto connection = connectionIn(attempt);
  if (!connection) return;
  // No answer at all: BlueZ is still busy with it, and would refuse the next as InProgress.
  if (error && isProblem(*error, Problem::connectionLost)) disconnect();
  connection->operations.finished(error);
}

void DeviceCore::valueChanged(Attempt attempt, const std::string& path, const Bytes& value) {
  const auto connection = connectionIn(attempt);
  if (!connection) return;
  for (const auto& characteristic : characteristics()) {
    if (characteristic->path() != path) continue;
    const auto on = connection->on.find(characteristic.get());
    const bool isRead = on != connection->on.end() && on->second == Way::descriptor;  // by another program
    if (!isRead) tell(*connection, characteristic, value);
  }
}

void DeviceCore::tell(Connection& connection, const std::shared_ptr<Characteristic>& source,
                      const Bytes& value) {
  if (state() != PeripheralState::connected || !connection.operations.isSubscribed(source)) return;
  static_cast<BluezCharacteristic&>(*source).setValue(value);
  events_.didUpdate(shared_from_this(), source, std::nullopt);
}

/// After anything has changed: whether the connection is still there.
void DeviceCore::check(Attempt attempt) {
  const auto connection = connectionIn(attempt);
  if (!connection) return;
  const MaybeError gone = connection->client->gone();
  if (isLeaving()) {
    if (gone) left(attempt);  // nobody is going to answer
    return;
  }
  const bool connected = connection->client->look(
      [&](const Objects& objects) { return objects.isTrue(connection->device, kDevice, "Connected"); });
  if (!connected) lose(gone ? *gone : errorOf(Problem::connectionLost, address_));
}

/// The link is lost. But what BlueZ told before, such as the acknowledgement of the last write, may still be
/// on its way over the bus: it comes before the answer to any call. BlueZ is not told to end the link, which
/// by now may be another program's.
void DeviceCore::descriptorEnded(Attempt attempt) {
  const auto connection = connectionIn(attempt);
  if (!connection) return;
  connection->client->start(
      {connection->device, kProperties, "GetAll"},
      [](sd_bus_message* call) { expectGood(sd_bus_message_append(call, "s", kDevice)); }, kPrompt,
      [run = whileThere(), attempt](const MaybeError&) {
        run([&](DeviceCore& core) {
          if (core.connectionIn(attempt)) core.lose(errorOf(Problem::connectionLost, core.address_));
        });
      });
}

void DeviceCore::lose(const Error& reason) {
  // What the recorder told before, such as the answer after which it restarts, may still be in a descriptor.
  const auto connection = connection_;
  if (!connection) return;
  connection->notifications->finish();
  {
    const internal::MutexLock lock(mutex_);
    if (state_ == PeripheralState::disconnecting) return;  // which has posted its own end
    if (state_ == PeripheralState::connected && attempt_ == connection->attempt) {
      // Behind the writes that are asked for already, which fail.
      post([](DeviceCore& core) { core.events_.didDisconnect(); });
      state_ = PeripheralState::disconnected;
    }
  }
  drop(reason);
}

/// Once more when there was no memory for all of it; an event may have done it already.
void DeviceCore::drop(const Error& reason) {
  if (const auto connection = connection_) {
    connection->notifications->end();
    connection->operations.end(reason);
  }
  connection_ = nullptr;
  finishWhenLeft();
}

void DeviceCore::leave(Attempt attempt) {
  const auto connection = connectionIn(attempt);
  if (!connection || !isLeaving()) return;  // lost meanwhile, or not begun for want of memory
  if (connection->client->gone()) return left(attempt);
  connection->operations.end(errorOf(Problem::connectionLost));
  endSubscriptions(*connection);
  connection->client->start({connection->device, kDevice, "Disconnect"}, noArguments, kLeaveLimit,
                            [run = whileThere(), attempt](const MaybeError&) {
                              run([&](DeviceCore& core) { core.left(attempt); });
                            });
}

/// The link may be shared with a program that goes on with it.
void DeviceCore::endSubscriptions(Connection& connection) {
  connection.notifications->end();
  for (const auto& characteristic : characteristics()) {
    const auto on = connection.on.find(characteristic.get());
    if (on == connection.on.end() || on->second != Way::bus) continue;
    connection.client->start({characteristic->path(), kCharacteristic, "StopNotify"}, noArguments,
                             kLeaveLimit, [](const MaybeError&) {});
  }
  connection.on.clear();
}

void DeviceCore::left(Attempt attempt) {
  {
    const internal::MutexLock lock(mutex_);
    if (state_ != PeripheralState::disconnecting || !connectionIn(attempt)) return;
    post([](DeviceCore& core) { core.events_.didDisconnect(); });
    state_ = PeripheralState::disconnected;
  }
  departures_->end(address_);
  drop(errorOf(Problem::connectionLost));
}

/// The connection to the bus has to last until BlueZ has answered.
void DeviceCore::finishWhenLeft() {
  if (self_ && !isLeaving()) finish();
}

}  // namespace kwtsdk::bluez
