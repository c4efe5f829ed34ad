#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/bluez/problem.h>
#include <kwtsdk/error.h>
#include <kwtsdk/export.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::bluez {

enum class ConnectStep { searching, connecting, discovering };

struct ConnectOptions {
  // How long each step may take; what is known already takes none.
  Duration searching = std::chrono::seconds(20);
  Duration connecting = std::chrono::seconds(20);
  Duration discovering = std::chrono::seconds(20);

  /// Called on the thread that called connect(), as each step begins. Must not throw. Empty: nothing.
  std::function<void(ConnectStep)> onStep;
};

/// A recorder, reached through BlueZ, the Bluetooth service of Linux, on the system bus. Needs BlueZ 5.62 or
/// later, which tells the ATT MTU.
///
/// Every event arrives on one thread ("kwt.bluez"), in the order in which BlueZ told. Writes and
/// subscriptions are sent one by one, in the order asked, the next when BlueZ has answered the one before. A
/// write after a refused subscription is not sent and reports the subscription's error, since its answer
/// would never arrive. A characteristic that was switched on stays on at BlueZ until the link ends; switched
/// off, it is no longer reported. A link that is lost, by distance, by a removed adapter or by an end of
/// bluetoothd, fails what was queued and leaves the peripheral disconnected; connect() brings the same
/// objects back.
///
/// Every member may be called on any thread, also inside an event, unless said otherwise. None throws.
class KWTSDK_EXPORT Device {
 public:
  /// `address` as "00:1A:7D:DA:71:13", in any letter case; `adapter` a name such as "hci0", empty: the first
  /// that has power. Contacts nobody yet.
  static std::shared_ptr<Device> create(std::shared_ptr<Scheduler> scheduler, std::string address,
                                        std::string adapter = {});

  /// Whether it has the form of an address as create() takes it.
  static bool isAddress(std::string_view text);

  /// Disconnects, and waits for BlueZ's answer to that, at most about 10 s, and for an event that is running
  /// on another thread; inside an event it waits for nothing. No event begins any more, and onDisconnect is
  /// not called. The peripheral stays valid and disconnected.
  ~Device();
  Device(const Device&) = delete;
  Device& operator=(const Device&) = delete;

  /// Finds the device, connects, waits until its characteristics are known. Blocks as long as the options
  /// say, and up to a minute more when BlueZ, the bus or an event is slow. Not inside an event or onStep:
  /// badArgument. Connected already: nothing happens. A connection that another Device or program made, or
  /// left behind, is ended first: what was begun on it would go on. Errors: Problem busUnreachable,
  /// notPermitted, serviceNotRunning, noAdapter, adapterOff, deviceNotFound, noConnection, noServices,
  /// connectionLost, cancelled, badArgument, busFailure; or BlueZ's own.
  MaybeError connect(const ConnectOptions& options = {});

  /// Ends the connection, or the attempt that is under way to make one. Nothing is sent that has not begun;
  /// writes with response that are not answered yet fail with connectionLost. Returns at once.
  void disconnect();

  std::shared_ptr<Peripheral> peripheral() const;

  /// Of all services; none before the first connection. A characteristic that is there again after another
  /// connect() is the same object.
  std::vector<std::shared_ptr<Characteristic>> characteristics() const;

  /// Acknowledgements, or failures, of writes with response; notifications. Events must not throw. One that
  /// is running may be of those set before.
  using Event = KWTBluetoothHelper::PeripheralEvent;
  void setEvents(Event didWrite, Event didUpdate);

  /// Called on the events' thread after the connection ended, whoever ended it; after the failures of what
  /// was queued.
  void setOnDisconnect(std::function<void()> onDisconnect);

  /// What a host does after connect(): hands the peripheral and its characteristics to the facade and
  /// forwards the events to it. What the facade has to be told when a link is lost is left to
  /// setOnDisconnect.
  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade);

 private:
  class Impl;
  explicit Device(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::bluez
