#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <kwtsdk/bluez/device.h>

#include "platform/bluez/client.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// The connections that this process has asked BlueZ to end, by the device's address. Whoever connects waits
/// for their end: until BlueZ has carried it out the device counts as connected, and a Disconnect that
/// arrives late ends the connection made meanwhile. Any thread.
class Departures {
 public:
  /// Shared by all devices of the process, which need not know of each other.
  static std::shared_ptr<Departures> ofThisProcess();

  void begin(const std::string& address);
  void end(const std::string& address);

  /// Waits until none of this address is under way. False: not within the limit.
  bool await(Scheduler& scheduler, const std::string& address, Duration limit);

 private:
  struct UnderWay {
    int count = 0;
    std::vector<std::shared_ptr<Semaphore>> waiters;
  };

  internal::Mutex mutex_;
  std::map<std::string, UnderWay> underWay_ KWT_GUARDED_BY(mutex_);
};

/// A device whose services are known.
struct ConnectedDevice {
  std::string path;
  std::vector<Objects::Characteristic> characteristics;
};

/// The way from an address to a connected device, on the thread that wants it.
class Connector {
 public:
  Connector(Client& client, std::string address, std::string adapter, const ConnectOptions& options)
      : client_(client), address_(std::move(address)), adapterName_(std::move(adapter)), options_(options) {}

  /// `adopt` takes what was connected, and may throw. Throws BluezError, after BlueZ has given the attempt
  /// up.
  using Adopt = std::function<void(const ConnectedDevice&)>;
  void run(const Adopt& adopt);

 private:
  bool askForBoth();
  std::string find();
  void establish(const std::string& device, const Adopt& adopt);
  void endInherited(const std::string& device);
  void connect(const std::string& device);
  ConnectedDevice discover(const std::string& device);
  std::vector<Objects::Characteristic> askForCharacteristics(const std::string& device);
  void giveUp(const std::string& device);
  bool isConnected(const std::string& device) const;
  void step(ConnectStep step) const;

  Client& client_;
  const std::string address_, adapterName_;
  const ConnectOptions& options_;
  std::string adapter_;
  bool isLoaded_ = false;   // with all of BlueZ's objects
  bool connected_ = false;  // the connection has been seen: from then on, its absence is a loss
};

}  // namespace kwtsdk::bluez
