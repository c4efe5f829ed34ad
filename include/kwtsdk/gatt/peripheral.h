#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/export.h>
#include <kwtsdk/peripheral.h>

// What hosts with a Bluetooth stack of their own would all write again. None of it is needed: the library
// knows only Peripheral and Characteristic.

namespace kwtsdk::gatt {

/// A Bluetooth address such as "00:1A:7D:DA:71:13", read in any letter case, in upper case; none for anything
/// else.
KWTSDK_EXPORT std::optional<std::string> addressIn(std::string_view text);

/// A characteristic whose value the stack sets. Any thread.
class KWTSDK_EXPORT ValueCharacteristic : public Characteristic {
 public:
  ValueCharacteristic(Uuid uuid, std::uint32_t properties);
  ~ValueCharacteristic() override;
  ValueCharacteristic(const ValueCharacteristic&) = delete;
  ValueCharacteristic& operator=(const ValueCharacteristic&) = delete;

  Uuid UUID() const override { return uuid_; }
  std::uint32_t properties() const override { return properties_; }
  std::optional<Bytes> value() const override;

  /// What was notified; before EventForwarder::didUpdate.
  void setValue(std::optional<Bytes> value);

 private:
  struct Value;
  const Uuid uuid_;
  const std::uint32_t properties_;
  const std::unique_ptr<Value> value_;
};

/// Passes everything on to another peripheral: for a host that wants to see, or to change, some of it.
class KWTSDK_EXPORT ForwardingPeripheral : public Peripheral {
 public:
  explicit ForwardingPeripheral(std::shared_ptr<Peripheral> to);
  ~ForwardingPeripheral() override;

  PeripheralState state() const override;
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& forCharacteristic,
                  WriteType type) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& forCharacteristic) override;
  std::size_t maximumWriteValueLengthForType(WriteType type) const override;

 private:
  const std::shared_ptr<Peripheral> to_;
};

/// Where the stack tells what has happened on a connection, and who hears of it: a facade, or the host's own
/// functions. Any thread; nothing here blocks or throws.
class KWTSDK_EXPORT EventForwarder {
 public:
  EventForwarder();
  ~EventForwarder();
  EventForwarder(const EventForwarder&) = delete;
  EventForwarder& operator=(const EventForwarder&) = delete;

  /// Replaces both; empty: nobody hears of it. They must not throw. One that is running may be of those set
  /// before.
  using Event = KWTBluetoothHelper::PeripheralEvent;
  void setEvents(Event didWrite, Event didUpdate);
  void setOnDisconnect(std::function<void()> onDisconnect);

  /// What a host does after discovery: hands the peripheral and its characteristics to the facade and
  /// forwards both events to it. The facade is held weakly. What it has to be told when the link is lost is
  /// left to setOnDisconnect.
  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade,
              const std::shared_ptr<Peripheral>& peripheral,
              const std::vector<std::shared_ptr<Characteristic>>& characteristics);

  /// Undoes attach(): no event begins any more, and the facade has neither peripheral nor characteristics,
  /// unless it was given another peripheral meanwhile. onDisconnect stays.
  void detach();

  // For the stack, one thread: each calls who hears of it, if anybody, and returns when that has.
  void didWrite(const std::shared_ptr<Peripheral>& peripheral,
                const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) const;
  void didUpdate(const std::shared_ptr<Peripheral>& peripheral,
                 const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) const;
  void didDisconnect() const;

 private:
  struct State;
  const std::unique_ptr<State> state_;
};

}  // namespace kwtsdk::gatt
