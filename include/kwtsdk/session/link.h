#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/error.h>
#include <kwtsdk/export.h>
#include <kwtsdk/peripheral.h>

namespace kwtsdk::session {

/// The way to one recorder, which can be made again. adapters.h has it for bluez::Device and for
/// sim::SimulatedLink; a host with a Bluetooth stack of its own implements it. What a member or the
/// Peripheral throws is logged and counts as Errc::linkFailed.
class KWTSDK_EXPORT Link {
 public:
  virtual ~Link();

  /// They take note and return: they neither block nor throw, and may still be called when the Session is
  /// gone.
  struct Events {
    KWTBluetoothHelper::PeripheralEvent didWrite;   // a write with response was acknowledged, or failed
    KWTBluetoothHelper::PeripheralEvent didUpdate;  // a notification came; value() has it already
    std::function<void()> didDisconnect;            // the link ended, whoever ended it
  };
  /// Once, inside Session::create(). Events come from one thread, in the order in which things happened, and
  /// name the objects that peripheral() and characteristics() gave.
  virtual void setEvents(Events events) = 0;

  /// Makes the link and waits until it can be used, or close() is called. On the Session's worker. Open
  /// already: nothing happens. An error becomes the cause() of Errc::linkFailed.
  virtual MaybeError open() = 0;

  /// Ends the link, or open(). Any thread, returns at once; also when there is nothing to end. An open() that
  /// it does not end within 5 s, told every 20 ms, is left behind by its operation; the next one waits.
  virtual void close() = 0;

  // After each open(), on the worker. Of the Peripheral it calls everything on that thread.
  virtual std::shared_ptr<Peripheral> peripheral() const = 0;
  virtual std::vector<std::shared_ptr<Characteristic>> characteristics() const = 0;
};

enum class LinkState : std::uint8_t {
  closed,  // not made yet, could not be made, or ended by the Session
  opening,
  open,
  lost,
};

}  // namespace kwtsdk::session
