// How a device's connection is made: on the thread that asks for it, as far as the events' thread takes it
// over.

#include <algorithm>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {
namespace {

std::size_t longestWriteIn(const std::vector<Objects::Characteristic>& characteristics) {
  std::size_t mtu = kSmallestMtu;
  for (const auto& characteristic : characteristics) mtu = std::max(mtu, characteristic.mtu);
  return mtu - kAttHead;
}

}  // namespace

MaybeError DeviceCore::connect(const ConnectOptions& options) {
  if (loop_.isCurrent()) return errorOf(Problem::badArgument, "connect() inside an event");
  const std::unique_lock one(*connecting_);
  if (const auto complaint = complaintAbout(options)) return complaint;
  if (const auto failure = attempted([this] { awaitEvents(); })) return failure;
  Error withoutMemory = noMemory();  // once it has begun, it ends
  auto before = PeripheralState::disconnecting;
  while (before == PeripheralState::disconnecting) {
    if (!awaitDepartures())
      return errorOf(Problem::noConnection, "BlueZ has not ended the connection before");
    before = beginAttempt();
  }
  if (before == PeripheralState::connected) return std::nullopt;
  return endAttempt(attempted([&] { establish(options); }, std::move(withoutMemory)));
}

MaybeError DeviceCore::complaintAbout(const ConnectOptions& options) const {
  if (state() == PeripheralState::connecting)  // the lock lets the same thread in again
    return errorOf(Problem::badArgument, "connect() while it is connecting, on the same thread");
  if (isClosed()) return errorOf(Problem::cancelled, "the device has been released");
  if (!Device::isAddress(address_))
    return errorOf(Problem::badArgument, "\"" + address_ + "\" is no Bluetooth address");
  if (std::min({options.searching, options.connecting, options.discovering}) < Duration::zero())
    return errorOf(Problem::badArgument, "a step of less than no time");
  return std::nullopt;
}

/// Waits for what is on its way to the events' thread, which belongs to the connection before: a loss takes
/// two pieces of work, the second for onDisconnect. A host whose event waits for this does not get further
/// than the limit.
void DeviceCore::awaitEvents() {
  {
    const internal::MutexLock lock(mutex_);
    if (attempt_ == 0) return;  // there was none
  }
  loop_.start();
  const auto told = scheduler_->semaphore("kwt.bluez.told");
  for (int i = 0; i < 2; ++i) {
    loop_.post([told] { told->signal(); });
    if (!told->wait(kLeaveLimit)) return;
  }
}

/// Begins one unless it is connected, or disconnecting again. The state before.
PeripheralState DeviceCore::beginAttempt() {
  const internal::MutexLock lock(mutex_);
  const PeripheralState before = state_;
  if (before == PeripheralState::connected || before == PeripheralState::disconnecting) return before;
  state_ = PeripheralState::connecting;
  cancelled_ = false;
  ++attempt_;
  return before;
}

void DeviceCore::establish(const ConnectOptions& options) {
  Attempt attempt = 0;
  {
    const internal::MutexLock lock(mutex_);
    attempt = attempt_;
  }
  const auto client = clientOf(attempt);
  {
    const internal::MutexLock lock(mutex_);
    attempting_ = client;
    if (cancelled_) client->cancel();
  }
  Connector(*client, address_, adapter_, options).run([&](const ConnectedDevice& device) {
    adopt(client, attempt, device);
  });
}

MaybeError DeviceCore::endAttempt(MaybeError error) {
  std::shared_ptr<Client> client;  // outlives the lock
  bool cancelled = false, closed = false;
  {
    const internal::MutexLock lock(mutex_);
    client = std::exchange(attempting_, nullptr);
    cancelled = std::exchange(cancelled_, false);
    closed = closed_ && error;  // one that was made is ended by close()
    if (error) state_ = PeripheralState::disconnected;
  }
  if (cancelled) departures_->end(address_);
  if (closed) finish();
  return error;
}

std::shared_ptr<Client> DeviceCore::clientOf(Attempt attempt) {
  const auto onValue = [run = whileThere(), attempt](const std::string& path, const Bytes& value) {
    run([&](DeviceCore& core) { core.valueChanged(attempt, path, value); });
  };
  const auto onChange = [run = whileThere(), attempt] {
    run([&](DeviceCore& core) { core.check(attempt); });
  };
  return Client::open(scheduler_, loop_, pathPartOf(address_), {onValue, onChange});
}

DeviceCore::ConnectionPtr DeviceCore::connectionOf(std::shared_ptr<Client> client, const std::string& device,
                                                   Attempt attempt) {
  const auto start = [this](const gatt::Operation& operation) {
    if (const auto current = connection_) send(*current, operation);
  };
  const auto report = [this, attempt](const gatt::OperationQueue::Target& target, const MaybeError& error) {
    if (const auto current = error ? connectionIn(attempt) : nullptr) current->notifications->fail();
    events_.didWrite(shared_from_this(), target, error);
    if (const auto current = connectionIn(attempt)) current->notifications->release();
  };
  auto connection = std::make_shared<Connection>(std::move(client), device, attempt, start, report);
  const auto onValue = [run = whileThere(), attempt](const auto& source, const Bytes& value) {
    run([&](DeviceCore& core) {
      if (const auto current = core.connectionIn(attempt)) core.tell(*current, source, value);
    });
  };
  const auto onEnd = [run = whileThere(), attempt] {
    run([&](DeviceCore& core) { core.descriptorEnded(attempt); });
  };
  connection->notifications = std::make_shared<Notifications>(Notifications::Events{onValue, onEnd});
  return connection;
}

/// From here on the connection is the events' thread's.
void DeviceCore::adopt(const std::shared_ptr<Client>& client, Attempt attempt,
                       const ConnectedDevice& device) {
  const auto connection = connectionOf(client, device.path, attempt);
  const internal::MutexLock lock(mutex_);
  if (cancelled_ || closed_) throw BluezError(Problem::cancelled);
  std::vector<CharacteristicPtr> characteristics;
  for (const auto& each : device.characteristics) {
    const auto same = std::ranges::find_if(characteristics_, [&](const auto& old) { return old->is(each); });
    characteristics.push_back(same == characteristics_.end() ? std::make_shared<BluezCharacteristic>(each)
                                                             : *same);
    if (each.offersDescriptor) connection->offering.insert(characteristics.back().get());
  }
  post([connection](DeviceCore& core) {
    core.connection_ = connection;
    core.loop_.add(connection->notifications);
    core.check(connection->attempt);  // for what happened meanwhile
  });
  characteristics_ = std::move(characteristics);
  longestWrite_ = longestWriteIn(device.characteristics);
  state_ = PeripheralState::connected;
}

}  // namespace kwtsdk::bluez
