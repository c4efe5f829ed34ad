// What hosts ask of a device, on their threads.

#include <kwtsdk/bluez/device.h>

#include <new>
#include <utility>

#include "platform/bluez/device_core.h"

namespace kwtsdk::bluez {

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
      loop_(scheduler_, "kwt.bluez") {}

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
