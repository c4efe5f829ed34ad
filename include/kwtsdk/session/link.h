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
/// sim::SimulatedLink; a host with a Bluetooth stack of its own implements it.
class KWTSDK_EXPORT Link {
 public:
  virtual ~Link();

  struct Events {
    KWTBluetoothHelper::PeripheralEvent didWrite, didUpdate;
    std::function<void()> didDisconnect;
  };
  /// Once, before anything else. Events come from one thread, in the order in which things happened.
  virtual void setEvents(Events events) = 0;

  /// Makes the link and waits until it can be used, or close() is called. On the Session's worker. Open
  /// already: nothing happens.
  virtual MaybeError open() = 0;

  /// Ends the link, or open(). Any thread, returns at once.
  virtual void close() = 0;

  virtual std::shared_ptr<Peripheral> peripheral() const = 0;
  virtual std::vector<std::shared_ptr<Characteristic>> characteristics() const = 0;
};

enum class LinkState : std::uint8_t { closed, opening, open, lost };

}  // namespace kwtsdk::session
