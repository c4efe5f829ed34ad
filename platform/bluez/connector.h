#pragma once

#include <functional>
#include <string>
#include <vector>

#include <kwtsdk/bluez/device.h>

#include "platform/bluez/client.h"

namespace kwtsdk::bluez {

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

  /// `adopt` takes what was connected, and may throw. Throws Trouble, after BlueZ has given the attempt up.
  using Adopt = std::function<void(const ConnectedDevice&)>;
  void run(const Adopt& adopt);

 private:
  bool tryInherited(const std::string& device, const Adopt& adopt);
  void reach(const std::string& device, const Adopt& adopt);
  bool isConnected(const std::string& device) const;
  std::string find();
  void join(const std::string& device);
  ConnectedDevice discover(const std::string& device);
  void giveUp(const std::string& device);
  void step(ConnectStep step) const;

  Client& client_;
  const std::string address_, adapterName_;
  const ConnectOptions& options_;
  std::string adapter_;
  bool connected_ = false;
};

}  // namespace kwtsdk::bluez
