#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <kwtsdk/bluez/device.h>

#include "platform/bluez/client.h"
#include "platform/bluez/connector.h"
#include "platform/bluez/departures.h"
#include "platform/bluez/gatt_queue.h"
#include "platform/closable_queue.h"

namespace kwtsdk::bluez {

/// How long BlueZ may take to end a connection.
inline constexpr Duration kLeaveLimit = std::chrono::seconds(10);

/// One device and its connections. What happens in a connection happens on the events' thread, to which
/// BlueZ's signals and answers are passed on, each bound to the number of the attempt it belongs to: the
/// bus's own thread never waits for a host, and a host that writes never waits for the bus.
class DeviceCore : public std::enable_shared_from_this<DeviceCore> {
 public:
  using CharacteristicPtr = std::shared_ptr<BluezCharacteristic>;
  struct Events {
    Device::Event didWrite, didUpdate;
  };

  DeviceCore(std::shared_ptr<Scheduler> scheduler, std::string address, std::string adapter);

  // ---- Any thread ----

  MaybeError connect(const ConnectOptions& options);
  void disconnect();
  void close();

  PeripheralState state() const { return closed_ ? PeripheralState::disconnected : state_.load(); }
  std::size_t longestWrite() const { return longestWrite_; }
  std::vector<CharacteristicPtr> characteristics() const;

  void write(const Bytes& value, const std::shared_ptr<Characteristic>& target, WriteType type);
  void setNotify(bool enabled, const std::shared_ptr<Characteristic>& target);

  void setPeripheral(const std::shared_ptr<Peripheral>& peripheral);  // held weakly: it holds this
  void setEvents(Events events);
  void setOnDisconnect(std::function<void()> onDisconnect);

 private:
  using Attempt = std::uint64_t;
  struct Connection {
    std::shared_ptr<Client> client;
    std::string device;
    Attempt attempt;
    GattQueue operations;
  };
  using ConnectionPtr = std::shared_ptr<Connection>;

  void establish(const ConnectOptions& options);
  std::shared_ptr<Client> clientOf(Attempt attempt);
  void adopt(const std::shared_ptr<Client>& client, Attempt attempt, const ConnectedDevice& device);
  ConnectionPtr connectionOf(std::shared_ptr<Client> client, std::string device, Attempt attempt);
  PeripheralState beginAttempt();
  bool awaitDepartures() const { return departures_->await(*scheduler_, address_, kLeaveLimit); }
  void awaitEvents();
  void finish();
  CharacteristicPtr ours(const std::shared_ptr<Characteristic>& characteristic) const;

  /// Work for the events' thread, while the core is there.
  using Work = std::function<void(DeviceCore&)>;
  void post(Work work);
  std::function<void(Work)> poster();  // for those that may outlive it

  // ---- The events' thread ----

  void add(GattOperation operation, const std::shared_ptr<Characteristic>& asked);
  void send(Connection& connection, const GattOperation& operation);
  void answered(Attempt attempt, const MaybeError& error);
  void valueChanged(Attempt attempt, const std::string& path, const Bytes& value);
  void check(Attempt attempt, const std::string& ended = {});
  void lose(const Error& reason);
  void leave(Attempt attempt);
  void left(Attempt attempt);
  void finishWhenLeft();
  void tellDisconnected();
  void deliver(Device::Event Events::*event, const std::shared_ptr<Characteristic>& source,
               const MaybeError& error);

  const std::shared_ptr<Scheduler> scheduler_;
  const std::string address_, adapter_;
  const std::shared_ptr<RecursiveLock> connecting_;  // by one thread at a time
  const std::shared_ptr<Departures> departures_ = Departures::ofThisProcess();
  internal::ClosableQueue queue_;
  std::atomic<bool> closed_{false};
  std::atomic<PeripheralState> state_{PeripheralState::disconnected};  // changed under mutex_
  std::atomic<std::size_t> longestWrite_;

  mutable std::mutex mutex_;  // never held while calling a host
  std::vector<CharacteristicPtr> characteristics_;
  std::weak_ptr<Peripheral> peripheral_;
  std::shared_ptr<const Events> events_ = std::make_shared<Events>();
  std::function<void()> onDisconnect_;
  std::shared_ptr<Client> attempting_;  // of the attempt under way
  bool cancelled_ = false;              // the attempt under way
  Attempt attempt_ = 0;

  // Only on the events' thread, and when that has ended. Whoever calls out holds it: an event may end it.
  ConnectionPtr connection_;
  std::shared_ptr<DeviceCore> self_;  // once closed by an event, until BlueZ has ended the connection
};

}  // namespace kwtsdk::bluez
