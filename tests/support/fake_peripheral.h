#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/gatt/peripheral.h>
#include <kwtsdk/kwtsdk.h>

#include "codec/hex.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {

using Lines = std::vector<std::string>;

struct FakeCharacteristic : gatt::ValueCharacteristic {
  FakeCharacteristic(const std::string& uuid, std::uint32_t properties)
      : ValueCharacteristic(*Uuid::fromString(uuid), properties) {}
};

/// A peripheral that does nothing by itself: it writes down what it was asked, as "write <hex>", "on <uuid>"
/// and "off <uuid>" (the UUID's first four characters), and the test plays the device.
class FakePeripheral : public Peripheral {
 public:
  PeripheralState state() const override { return current; }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
    calls.push_back((type == WriteType::withResponse ? "write " : "command ") + internal::hexString(value));
    if (onWrite) onWrite(to);
  }
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
    calls.push_back((enabled ? "on " : "off ") + of->UUID().toString().substr(4, 4));
    if (onSetNotify) onSetNotify(enabled);
  }
  std::size_t maximumWriteValueLengthForType(WriteType) const override { return 512; }

  PeripheralState current = PeripheralState::connected;
  Lines calls;
  std::function<void(const std::shared_ptr<Characteristic>&)> onWrite;
  std::function<void(bool enabled)> onSetNotify;
};

class LineLog : public Log {
 public:
  void write(LogLevel level, std::string_view line) override {
    const std::lock_guard lock(mutex_);
    if (level != LogLevel::debug) lines_.emplace_back(line);
  }
  Lines lines() const {
    const std::lock_guard lock(mutex_);
    return lines_;
  }
  int count(std::string_view part) const {
    int found = 0;
    for (const auto& line : lines()) found += line.find(part) == std::string::npos ? 0 : 1;
    return found;
  }

 private:
  mutable std::mutex mutex_;
  Lines lines_;
};

/// A facade with the recorder's five characteristics on a fake peripheral.
struct FakeHost {
  explicit FakeHost(std::shared_ptr<Scheduler> scheduler = nullptr)
      : helper(KWTBluetoothHelper::create({std::move(scheduler), nullptr, nullptr, log})) {
    helper->setConnectedPeripheral(peripheral);
    for (const auto& characteristic : {statusWrite, statusNotify, fileWrite, fileNotify, firmware}) {
      helper->addDiscoveredCharacteristic(characteristic);
    }
  }

  void acknowledge(const std::shared_ptr<Characteristic>& characteristic,
                   const MaybeError& error = std::nullopt) {
    helper->didWriteValueForCharacteristic(peripheral, characteristic, error);
  }
  void notify(const std::shared_ptr<FakeCharacteristic>& characteristic, const std::string& hex,
              const MaybeError& error = std::nullopt) {
    characteristic->setValue(internal::toData(hex));
    helper->didUpdateValueForCharacteristic(peripheral, characteristic, error);
  }

  static std::shared_ptr<FakeCharacteristic> make(const char* uuid, std::uint32_t properties) {
    return std::make_shared<FakeCharacteristic>(uuid, properties);
  }
  static constexpr std::uint32_t kWrite = characteristic_property::write,
                                 kNotify = characteristic_property::notify;

  std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  std::shared_ptr<FakePeripheral> peripheral = std::make_shared<FakePeripheral>();
  std::shared_ptr<FakeCharacteristic> statusWrite = make("CA2A", kWrite),
                                      statusNotify = make("C92A", kNotify),
                                      fileWrite = make(wire::CHARACTERISTIC_WRITE, kWrite),
                                      fileNotify = make(wire::CHARACTERISTIC_NOTIFY, kNotify),
                                      firmware = make(wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                                                      kWrite | kNotify);
  std::shared_ptr<KWTBluetoothHelper> helper;
};

}  // namespace kwtsdk::testing
