#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/gatt/operation_queue.h>
#include <kwtsdk/gatt/peripheral.h>

#include "platform/bluez/client.h"
#include "platform/bluez/connector.h"
#include "platform/bluez/loop.h"
#include "platform/bluez/notifications.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// How long BlueZ may take to end a connection.
inline constexpr Duration kLeaveLimit = std::chrono::seconds(10);

// Bluetooth Core standard, Volume 3, Parts F and G.
inline constexpr std::size_t kSmallestMtu = 23, kAttHead = 3;

class BluezCharacteristic : public gatt::ValueCharacteristic {
 public:
  explicit BluezCharacteristic(const Objects::Characteristic& known)
      : ValueCharacteristic(known.uuid, known.properties), path_(known.path) {}

  const std::string& path() const { return path_; }

  /// Whether BlueZ's object is the same one as when this was made.
  bool is(const Objects::Characteristic& other) const {
    return path_ == other.path && UUID() == other.uuid && properties() == other.properties;
  }

 private:
  const std::string path_;
};

/// One device and its connections, and the peripheral that the library knows. What happens in a connection
/// happens on one thread, the loop's: BlueZ's signals and answers, each bound to the number of the attempt it
/// belongs to, and what hosts ask for, who never wait for it.
class DeviceCore : public Peripheral, public std::enable_shared_from_this<DeviceCore> {
 public:
  using CharacteristicPtr = std::shared_ptr<BluezCharacteristic>;

  /// `address` in upper case.
  DeviceCore(std::shared_ptr<Scheduler> scheduler, std::string address, std::string adapter);

  // ---- Any thread ----

  MaybeError connect(const ConnectOptions& options);
  void disconnect();
  void close();  // throws std::bad_alloc, after which finish() remains to be done
  void finish();

  PeripheralState state() const override;
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& target, WriteType type) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& target) override;
  std::size_t maximumWriteValueLengthForType(WriteType type) const override;

  std::vector<CharacteristicPtr> characteristics() const;
  gatt::EventForwarder& events() { return events_; }

 private:
  using Attempt = std::uint64_t;
  enum class Way { descriptor, bus };  // of notifications
  struct Connection {
    template <class Send, class Report>
    Connection(std::shared_ptr<Client> its, std::string path, Attempt number, Send send, Report report)
        : client(std::move(its)), device(std::move(path)), attempt(number), operations(send, report) {}

    const std::shared_ptr<Client> client;
    const std::string device;
    const Attempt attempt;
    std::set<const Characteristic*> offering;  // a descriptor for their notifications
    std::map<const Characteristic*, Way> on;   // at BlueZ, as long as the link lives
    std::set<const Characteristic*> hidden;    // switched off by the host
    gatt::OperationQueue operations;
    std::shared_ptr<Notifications> notifications;
  };
  using ConnectionPtr = std::shared_ptr<Connection>;

  MaybeError complaintAbout(const ConnectOptions& options) const;
  void awaitEvents();
  PeripheralState beginAttempt();
  void establish(const ConnectOptions& options);
  MaybeError endAttempt(MaybeError error);
  std::shared_ptr<Client> clientOf(Attempt attempt);
  void adopt(const std::shared_ptr<Client>& client, Attempt attempt, const ConnectedDevice& device);
  ConnectionPtr connectionOf(std::shared_ptr<Client> client, const std::string& device, Attempt attempt);
  bool isLeaving() const;
  bool isClosed() const;
  bool awaitDepartures() const { return departures_->await(*scheduler_, address_, kLeaveLimit); }
  CharacteristicPtr ours(const std::shared_ptr<Characteristic>& characteristic) const;

  /// Work for the events' thread, while the core is there.
  using Work = std::function<void(DeviceCore&)>;
  void post(Work work);
  std::function<void(const Work&)> whileThere();  // does it at once, for those that may outlive the core
  void postOperation(gatt::Operation::Kind kind, const std::shared_ptr<Characteristic>& target,
                     const Bytes& value);

  // ---- The events' thread ----

  /// The connection that this attempt has made, while it is there.
  ConnectionPtr connectionIn(Attempt attempt) const {
    return connection_ && connection_->attempt == attempt ? connection_ : nullptr;
  }
  void add(gatt::Operation operation, const std::shared_ptr<Characteristic>& asked);
  void send(Connection& connection, const gatt::Operation& operation);
  void write(Connection& connection, const gatt::Operation& operation);
  void subscribe(Connection& connection, const gatt::Operation& operation);
  void startNotify(Connection& connection, const CharacteristicPtr& target);
  void subscribed(Attempt attempt, const CharacteristicPtr& target, Way way, const MaybeError& error);
  void answered(Attempt attempt, const MaybeError& error);
  void valueChanged(Attempt attempt, const std::string& path, const Bytes& value);
  void tell(Connection& connection, const std::shared_ptr<Characteristic>& source, const Bytes& value);
  void check(Attempt attempt);
  void descriptorEnded(Attempt attempt);
  void lose(const Error& reason);
  void drop(const Error& reason);
  void leave(Attempt attempt);
  void endSubscriptions(Connection& connection);
  void left(Attempt attempt);
  void finishWhenLeft();

  const std::shared_ptr<Scheduler> scheduler_;
  const std::string address_, adapter_;
  const std::shared_ptr<RecursiveLock> connecting_;  // by one thread at a time
  const std::shared_ptr<Departures> departures_ = Departures::ofThisProcess();
  gatt::EventForwarder events_;

  mutable internal::Mutex mutex_;
  PeripheralState state_ KWT_GUARDED_BY(mutex_) = PeripheralState::disconnected;
  bool closed_ KWT_GUARDED_BY(mutex_) = false;  // and so disconnected for everybody else
  std::size_t longestWrite_ KWT_GUARDED_BY(mutex_) = kSmallestMtu - kAttHead;
  std::vector<CharacteristicPtr> characteristics_ KWT_GUARDED_BY(mutex_);
  Attempt attempt_ KWT_GUARDED_BY(mutex_) = 0;
  std::shared_ptr<Client> attempting_ KWT_GUARDED_BY(mutex_);  // of the attempt under way
  bool cancelled_ KWT_GUARDED_BY(mutex_) = false;              // the attempt under way

  // Only on the events' thread, and when that has ended. Whoever calls out holds it: an event may end it.
  ConnectionPtr connection_;
  std::shared_ptr<DeviceCore> self_;  // once closed by an event, until BlueZ has ended the connection

  Loop loop_;  // last, so that its thread ends first
};

}  // namespace kwtsdk::bluez
