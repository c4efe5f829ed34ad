#pragma once

#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "tools/interrupt.h"

namespace kwtsdk::tool {

/// The connection to a recorder, however it was made.
class RecorderConnection {
 public:
  virtual ~RecorderConnection() = default;

  /// Hands peripheral and characteristics to the facade and forwards events to it.
  virtual void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) = 0;

  /// Called on the connection's thread for each notification, before the facade gets it: nothing that follows
  /// from one is seen before it. Empty: nothing.
  using NotificationObserver = std::function<void(const Bytes&)>;
  virtual void setOnNotification(NotificationObserver onNotification) = 0;

  /// Called on the connection's thread after it was lost or given up; empty: nothing.
  virtual void setOnDisconnect(std::function<void()> onDisconnect) = 0;

  /// Nothing is sent or forwarded that has not yet begun. Returns at once; any thread.
  virtual void disconnect() = 0;

  /// The last write's error, which the library's blocking forms do not tell.
  virtual MaybeError writeError() const { return std::nullopt; }

  /// For Ctrl-C while nothing is under way that has to be ended in order. May be called after the
  /// connection's end.
  virtual std::function<void()> interruptAction() const { return nullptr; }
};

/// Throws std::runtime_error whose text says what to do.
std::unique_ptr<RecorderConnection> connectSimulated(const std::shared_ptr<Scheduler>& scheduler,
                                                     const std::string& folder);

/// Finds the recorder of that Bluetooth address and connects, which a person at a terminal sees. Ctrl-C ends
/// the attempt. Throws Failure.
std::unique_ptr<RecorderConnection> connectOverBluetooth(const std::shared_ptr<Scheduler>& scheduler,
                                                         Interrupt& interrupt, const std::string& address);

}  // namespace kwtsdk::tool
