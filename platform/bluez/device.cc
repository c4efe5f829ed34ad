// What hosts ask of a device, on their threads.

#include <kwtsdk/bluez/device.h>

#include <algorithm>
#include <new>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {
namespace {

constexpr std::size_t kSmallestMtu = 23, kAttHead = 3;  // Bluetooth Core standard, Volume 3, Parts F and G

std::size_t longestWriteIn(const std::vector<Objects::Characteristic>& characteristics) {
  std::size_t mtu = kSmallestMtu;
  for (const auto& characteristic : characteristics) mtu = std::max(mtu, characteristic.mtu);
  return mtu - kAttHead;
}

}  // namespace

class Device::Impl {
 public:
  explicit Impl(std::shared_ptr<DeviceCore> its) : core(std::move(its)) {}

  const std::shared_ptr<DeviceCore> core;
};

std::shared_ptr<Device> Device::create(std::shared_ptr<Scheduler> scheduler, std::string address,
                                       std::string adapter) {
  auto core = std::make_shared<DeviceCore>(std::move(scheduler), gatt::addressIn(address).value_or(address),
                                           std::move(adapter));
  return std::shared_ptr<Device>(new Device(std::make_unique<Impl>(std::move(core))));
}

bool Device::isAddress(std::string_view text) { return gatt::addressIn(text).has_value(); }

Device::Device(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
Device::~Device() {
  const auto closes = [this] {
    try {
      impl_->core->close();
      return true;
    } catch (const std::bad_alloc&) {
      return false;
    }
  };
  if (!closes() && !closes()) impl_->core->finish();  // the link stays until somebody connects again
}

MaybeError Device::connect(const ConnectOptions& options) {
  const auto core = impl_->core;  // onStep may end the device
  return core->connect(options);
}
void Device::disconnect() { impl_->core->disconnect(); }

std::shared_ptr<Peripheral> Device::peripheral() const { return impl_->core; }

std::vector<std::shared_ptr<Characteristic>> Device::characteristics() const {
  const auto all = impl_->core->characteristics();
  return {all.begin(), all.end()};
}

void Device::setEvents(Event didWrite, Event didUpdate) {
  impl_->core->events().setEvents(std::move(didWrite), std::move(didUpdate));
}

void Device::setOnDisconnect(std::function<void()> onDisconnect) {
  impl_->core->events().setOnDisconnect(std::move(onDisconnect));
}

void Device::attach(const std::shared_ptr<KWTBluetoothHelper>& facade) {
  impl_->core->events().attach(facade, impl_->core, characteristics());
}

DeviceCore::DeviceCore(std::shared_ptr<Scheduler> scheduler, std::string address, std::string adapter)
    : scheduler_(std::move(scheduler)),
      address_(std::move(address)),
      adapter_(std::move(adapter)),
      connecting_(scheduler_->recursiveLock("kwt.bluez.connect")),
      longestWrite_(kSmallestMtu - kAttHead),
      loop_(scheduler_, "kwt.bluez") {}

MaybeError DeviceCore::connect(const ConnectOptions& options) {
  if (loop_.isCurrent()) return errorOf(Problem::badArgument, "connect() inside an event");
  const std::unique_lock one(*connecting_);
  if (const auto complaint = complaintAbout(options)) return complaint;
  if (const auto failure = attempted([this] { awaitEvents(); })) return failure;
  MaybeError outcome = errorOf(Problem::busFailure, kNoMemory);  // while there is some
  auto before = PeripheralState::disconnecting;
  while (before == PeripheralState::disconnecting) {
    if (!awaitDepartures())
      return errorOf(Problem::noConnection, "BlueZ has not ended the connection before");
    before = beginAttempt();
  }
  if (before == PeripheralState::connected) return std::nullopt;
  try {
    outcome = attempted([&] { establish(options); });
  } catch (const std::bad_alloc&) {  // it stays what it is
  }
  return endAttempt(std::move(outcome));
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
  std::string device = "dev_" + address_;  // as BlueZ's path has it
  std::ranges::replace(device, ':', '_');
  return Client::open(scheduler_, loop_, device, {onValue, onChange});
}

DeviceCore::ConnectionPtr DeviceCore::connectionOf(std::shared_ptr<Client> client, const std::string& device,
                                                   Attempt attempt) {
  const auto start = [this](const gatt::Operation& operation) {
    if (const auto current = connection_) send(*current, operation);
  };
  const auto report = [this, attempt](const gatt::OperationQueue::Target& target, const MaybeError& error) {
    if (const auto current = error ? connectionIn(attempt) : nullptr) current->notifications->fail();
    events_.didWrite(shared_from_this(), target, error);
    if (const auto current = error ? nullptr : connectionIn(attempt)) current->notifications->release();
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

void DeviceCore::disconnect() {
  const internal::MutexLock lock(mutex_);
  if (state_ == PeripheralState::connecting) {
    if (!cancelled_) departures_->begin(address_);
    cancelled_ = true;
    if (attempting_) attempting_->cancel();
  } else if (state_ == PeripheralState::connected) {
    post([attempt = attempt_](DeviceCore& core) { core.leave(attempt); });
    departures_->begin(address_);
    state_ = PeripheralState::disconnecting;  // last, when nothing has been refused memory
  }
}

void DeviceCore::close() {
  events_.setEvents(nullptr, nullptr);
  events_.setOnDisconnect(nullptr);
  disconnect();
  {
    const internal::MutexLock lock(mutex_);
    closed_ = true;
    if (state_ == PeripheralState::connecting) return;  // whoever connects still needs the loop
  }
  if (!loop_.isCurrent()) {
    if (isLeaving()) awaitDepartures();
    return finish();
  }
  self_ = shared_from_this();
  // Behind what has been posted, such as a connection that is to be taken over and left.
  post([](DeviceCore& core) { core.finishWhenLeft(); });
}

void DeviceCore::finish() {
  loop_.close();
  const auto self = std::move(self_);  // outlives the lock
  connection_.reset();
  auto before = PeripheralState::disconnected;
  {
    const internal::MutexLock lock(mutex_);
    before = std::exchange(state_, PeripheralState::disconnected);
    closed_ = true;
  }
  if (before == PeripheralState::disconnecting) departures_->end(address_);  // BlueZ has not answered in time
}

PeripheralState DeviceCore::state() const {
  const internal::MutexLock lock(mutex_);
  return closed_ ? PeripheralState::disconnected : state_;
}

bool DeviceCore::isClosed() const {
  const internal::MutexLock lock(mutex_);
  return closed_;
}

bool DeviceCore::isLeaving() const {
  const internal::MutexLock lock(mutex_);
  return state_ == PeripheralState::disconnecting;
}

std::size_t DeviceCore::maximumWriteValueLengthForType(WriteType) const {
  const internal::MutexLock lock(mutex_);
  return longestWrite_;
}

std::vector<DeviceCore::CharacteristicPtr> DeviceCore::characteristics() const {
  const internal::MutexLock lock(mutex_);
  return characteristics_;
}

}  // namespace kwtsdk::bluez
