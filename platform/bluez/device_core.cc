#include "platform/bluez/device_core.h"

#include <algorithm>
#include <utility>

namespace kwtsdk::bluez {
namespace {

constexpr std::size_t kSmallestMtu = 23, kAttHead = 3;  // Bluetooth Core standard, Volume 3, Parts F and G

std::string upperCase(std::string text) {
  std::ranges::transform(text, text.begin(),
                         [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 'a' + 'A') : c; });
  return text;
}

std::size_t longestWriteIn(const std::vector<Objects::Characteristic>& characteristics) {
  std::size_t mtu = kSmallestMtu;
  for (const auto& characteristic : characteristics) mtu = std::max(mtu, characteristic.mtu);
  return mtu - kAttHead;
}

}  // namespace

DeviceCore::DeviceCore(std::shared_ptr<Scheduler> scheduler, std::string address, std::string adapter)
    : scheduler_(std::move(scheduler)),
      address_(upperCase(std::move(address))),
      adapter_(std::move(adapter)),
      connecting_(scheduler_->recursiveLock("kwt.bluez.connect")),
      queue_(*scheduler_, "kwt.bluez"),
      longestWrite_(kSmallestMtu - kAttHead) {}

MaybeError DeviceCore::connect(const ConnectOptions& options) {
  const std::unique_lock one(*connecting_);
  if (state_ == PeripheralState::connecting)  // the lock lets the same thread in again
    return errorOf(Problem::badArgument, "connect() while it is connecting, on the same thread");
  if (!Device::isAddress(address_))
    return errorOf(Problem::badArgument, "\"" + address_ + "\" is no Bluetooth address");
  if (std::min({options.searching, options.connecting, options.discovering}) < Duration::zero())
    return errorOf(Problem::badArgument, "a step of less than no time");
  awaitEvents();
  auto before = PeripheralState::disconnecting;
  while (before == PeripheralState::disconnecting) {
    if (!awaitDepartures())
      return errorOf(Problem::noConnection, "BlueZ has not ended the connection before");
    before = beginAttempt();
  }
  if (before == PeripheralState::connected) return std::nullopt;
  const MaybeError error = attempted([&] { establish(options); });
  std::shared_ptr<Client> client;  // outlives the lock
  const std::lock_guard lock(mutex_);
  client = std::exchange(attempting_, nullptr);
  if (error) state_ = PeripheralState::disconnected;
  return error;
}

/// What is on its way to the events' thread belongs to the connection before: its loss is told by one work,
/// which leaves another one behind for onDisconnect. A host that lets an event wait for this gets no answer.
void DeviceCore::awaitEvents() {
  const auto told = scheduler_->semaphore("kwt.bluez.told");
  for (int i = 0; i < 2 && !queue_.isCurrent(); ++i) {
    queue_.async([told] { told->signal(); });
    if (!told->wait(kLeaveLimit)) return;
  }
}

/// Begins one unless it is connected, or disconnecting again. The state before.
PeripheralState DeviceCore::beginAttempt() {
  const std::lock_guard lock(mutex_);
  const PeripheralState before = state_;
  if (before == PeripheralState::connected || before == PeripheralState::disconnecting) return before;
  state_ = PeripheralState::connecting;
  cancelled_ = false;
  ++attempt_;
  return before;
}

void DeviceCore::establish(const ConnectOptions& options) {
  const Attempt attempt = attempt_;
  const auto client = clientOf(attempt);
  {
    const std::lock_guard lock(mutex_);
    attempting_ = client;
    if (cancelled_) client->cancel();
  }
  Connector(*client, address_, adapter_, options).run([&](const ConnectedDevice& device) {
    adopt(client, attempt, device);
  });
}

std::shared_ptr<Client> DeviceCore::clientOf(Attempt attempt) {
  const auto onValue = [post = poster(), attempt](const std::string& path, Bytes value) {
    post([attempt, path, value = std::move(value)](DeviceCore& core) {
      core.valueChanged(attempt, path, value);
    });
  };
  const auto onChange = [post = poster(), attempt](const std::string& ended) {
    post([attempt, ended](DeviceCore& core) { core.check(attempt, ended); });
  };
  return std::make_shared<Client>(*scheduler_, Client::Events{onValue, onChange});
}

DeviceCore::ConnectionPtr DeviceCore::connectionOf(std::shared_ptr<Client> client, std::string device,
                                                   Attempt attempt) {
  return std::make_shared<Connection>(
      Connection{std::move(client), std::move(device), attempt,
                 GattQueue([this](const GattOperation& operation) { send(*connection_, operation); },
                           [this](const CharacteristicPtr& target, const MaybeError& error) {
                             deliver(&Events::didWrite, target, error);
                           })});
}

/// From here on the connection is the events' thread's.
void DeviceCore::adopt(const std::shared_ptr<Client>& client, Attempt attempt,
                       const ConnectedDevice& device) {
  const auto connection = connectionOf(client, device.path, attempt);
  const std::lock_guard lock(mutex_);
  if (cancelled_) throw Trouble(Problem::cancelled);
  std::vector<CharacteristicPtr> characteristics;
  for (const auto& each : device.characteristics) {
    const auto same = std::ranges::find_if(characteristics_, [&](const auto& old) { return old->is(each); });
    characteristics.push_back(same == characteristics_.end() ? std::make_shared<BluezCharacteristic>(each)
                                                             : *same);
  }
  characteristics_ = std::move(characteristics);
  longestWrite_ = longestWriteIn(device.characteristics);
  state_ = PeripheralState::connected;
  post([connection](DeviceCore& core) {
    core.connection_ = connection;
    core.check(connection->attempt);  // for what happened meanwhile
  });
}

std::function<void(DeviceCore::Work)> DeviceCore::poster() {
  return [weak = weak_from_this()](Work work) {
    if (const auto self = weak.lock()) self->post(std::move(work));
  };
}

void DeviceCore::post(Work work) {
  queue_.async([weak = weak_from_this(), work = std::move(work)] {
    if (const auto self = weak.lock()) work(*self);
  });
}

void DeviceCore::disconnect() {
  const std::lock_guard lock(mutex_);
  if (state_ == PeripheralState::connecting) {
    cancelled_ = true;
    if (attempting_) attempting_->cancel();
  } else if (state_ == PeripheralState::connected) {
    state_ = PeripheralState::disconnecting;
    departures_->begin(address_);
    post([attempt = attempt_](DeviceCore& core) { core.leave(attempt); });
  }
}

void DeviceCore::close() {
  setEvents({});
  setOnDisconnect(nullptr);
  disconnect();
  if (!queue_.isCurrent()) {
    if (state_ == PeripheralState::disconnecting) awaitDepartures();
    return finish();
  }
  closed_ = true;
  self_ = shared_from_this();
  // Behind what has been posted, such as a connection that is to be taken over and left.
  post([](DeviceCore& core) { core.finishWhenLeft(); });
}

/// The connection to the bus has to last until BlueZ has answered.
void DeviceCore::finishWhenLeft() {
  if (self_ && state_ != PeripheralState::disconnecting) finish();
}

void DeviceCore::finish() {
  const auto self = std::move(self_);  // outlives the lock
  queue_.close();
  connection_.reset();
  std::unique_lock lock(mutex_);
  const auto before = state_.exchange(PeripheralState::disconnected);
  lock.unlock();
  if (before == PeripheralState::disconnecting) departures_->end(address_);  // too late
}

std::vector<DeviceCore::CharacteristicPtr> DeviceCore::characteristics() const {
  const std::lock_guard lock(mutex_);
  return characteristics_;
}

DeviceCore::CharacteristicPtr DeviceCore::ours(const std::shared_ptr<Characteristic>& characteristic) const {
  const std::lock_guard lock(mutex_);
  const auto found = std::ranges::find(characteristics_, characteristic);
  return found == characteristics_.end() ? nullptr : *found;
}

void DeviceCore::write(const Bytes& value, const std::shared_ptr<Characteristic>& target, WriteType type) {
  const auto kind = type == WriteType::withResponse ? GattOperation::Kind::write
                                                    : GattOperation::Kind::writeWithoutResponse;
  post([operation = GattOperation{kind, ours(target), value}, target](DeviceCore& core) {
    core.add(operation, target);
  });
}

void DeviceCore::setNotify(bool enabled, const std::shared_ptr<Characteristic>& target) {
  const auto kind = enabled ? GattOperation::Kind::subscribe : GattOperation::Kind::unsubscribe;
  post([operation = GattOperation{kind, ours(target), {}}, target](DeviceCore& core) {
    core.add(operation, target);
  });
}

void DeviceCore::setPeripheral(const std::shared_ptr<Peripheral>& peripheral) {
  const std::lock_guard lock(mutex_);
  peripheral_ = peripheral;
}

void DeviceCore::setEvents(Events events) {
  auto replaced = std::make_shared<const Events>(std::move(events));
  const std::lock_guard lock(mutex_);
  events_.swap(replaced);
}

void DeviceCore::setOnDisconnect(std::function<void()> onDisconnect) {
  const std::lock_guard lock(mutex_);
  onDisconnect_.swap(onDisconnect);
}

}  // namespace kwtsdk::bluez
