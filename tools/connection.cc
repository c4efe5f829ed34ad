#include "tools/connection.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "platform/threads/mutex.h"
#include "sim/link/ending_elsewhere.h"
#include "sim/samples/microphones.h"
#include "tools/failure.h"
#include "tools/terminal.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::tool {
namespace {

/// Who sees notifications before the facade. Outlives the connection's owner, since its thread may.
using Observation = internal::SharedField<RecorderConnection::NotificationObserver>;

/// `forward`, after the observer has seen what it gets.
KWTBluetoothHelper::PeripheralEvent observed(const std::shared_ptr<Observation>& observation,
                                             KWTBluetoothHelper::PeripheralEvent forward) {
  return [observation, forward = std::move(forward)](const auto& peripheral, const auto& characteristic,
                                                     const MaybeError& error) {
    const auto observer = observation->get();
    const auto value = characteristic->value();
    if (observer && value) observer(*value);
    forward(peripheral, characteristic, error);
  };
}

std::shared_ptr<sim::SimulatedLink> openSimulator(const std::shared_ptr<Scheduler>& scheduler,
                                                  const std::filesystem::path& folder) {
  const auto recorder = sim::openSimulatedRecorder(scheduler, folder);
  recorder.model->setMicrophone(sim::microphoneIn(folder));
  return sim::endingElsewhere(scheduler, recorder.link);
}

class SimulatedConnection : public RecorderConnection {
 public:
  explicit SimulatedConnection(std::shared_ptr<sim::SimulatedLink> link) : link_(std::move(link)) {}
  ~SimulatedConnection() override { link_->disconnect(); }

  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) override {
    facade->setConnectedPeripheral(link_->peripheral());
    for (const auto& characteristic : link_->characteristics())
      facade->addDiscoveredCharacteristic(characteristic);
    link_->setEvents(facade->didWriteValueForCharacteristicBlock(),
                     observed(observation_, facade->didUpdateValueForCharacteristicBlock()));
  }
  void setOnNotification(NotificationObserver onNotification) override {
    observation_->set(std::move(onNotification));
  }
  void setOnDisconnect(std::function<void()> onDisconnect) override {
    link_->setOnDisconnect(std::move(onDisconnect));
  }
  void disconnect() override { link_->disconnect(); }

 private:
  const std::shared_ptr<Observation> observation_ = std::make_shared<Observation>();
  const std::shared_ptr<sim::SimulatedLink> link_;
};

using Device = std::shared_ptr<bluez::Device>;
using LastError = internal::SharedField<MaybeError>;  // outlives the connection's owner, as well

const char* textOf(bluez::ConnectStep step) {
  switch (step) {
    case bluez::ConnectStep::searching:
      return "Looking for the recorder...";
    case bluez::ConnectStep::connecting:
      return "Connecting...";
    case bluez::ConnectStep::discovering:
      return "Asking what it can do...";
  }
  return "";
}

std::function<void()> interruptActionFor(const Device& device, Interrupt& interrupt) {
  return [weak = std::weak_ptr(device), &interrupt] {
    interrupt.noteDisconnected();
    if (const auto connected = weak.lock()) connected->disconnect();
  };
}

void connectTo(const Device& device, const Scheduler& scheduler, const Interrupt& interrupt) {
  TerminalLine line(scheduler);
  bluez::ConnectOptions options;
  options.onStep = [&](bluez::ConnectStep step) {
    if (interrupt.hasDisconnected()) device->disconnect();  // it came before the attempt had begun
    line.show(textOf(step));
  };
  const MaybeError error = device->connect(options);
  line.clear();
  if (error) throw bluetoothFailure(*error);
}

void checkChannels(const bluez::Device& device) {
  const auto characteristics = device.characteristics();
  for (const char* const text :
       {wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE, wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
        wire::CHARACTERISTIC_WRITE, wire::CHARACTERISTIC_NOTIFY,
        wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY}) {
    const auto isIt = [uuid = Uuid::fromString(text)](const auto& known) { return known->UUID() == uuid; };
    if (std::ranges::any_of(characteristics, isIt)) continue;
    throw Failure(
        ToolError::noRecorder,
        std::string("The device is no recorder: it lacks the characteristic ").append(text).append("."),
        "Name the address of a recorder; `kwt scan` shows those in range.");
  }
}

/// A download's packets have that size, and what does not fit one arrives cut off.
void checkPacketSize(const bluez::Device& device) {
  constexpr std::size_t needed = wire::kDownloadPacketSize, attHead = 3;
  const std::size_t fitting = device.peripheral()->maximumWriteValueLengthForType(WriteType::withResponse);
  if (fitting >= needed) return;
  throw Failure(ToolError::packetsTooSmall,
                "The connection is of no use: it carries " + std::to_string(fitting) +
                    " bytes at a time (ATT MTU " + std::to_string(fitting + attHead) +
                    "), and the recorder's packets have " + std::to_string(needed) + ".",
                "Both ends have to agree on an ATT MTU of at least " + std::to_string(needed + attHead) +
                    ": use another Bluetooth adapter, or have the recorder's firmware updated.");
}

class BluetoothConnection : public RecorderConnection {
 public:
  BluetoothConnection(Device device, Interrupt& interrupt)
      : device_(std::move(device)), interrupt_(interrupt) {}

  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) override {
    device_->attach(facade);
    device_->setEvents(
        [lastError = lastError_, forward = facade->didWriteValueForCharacteristicBlock()](
            const auto& peripheral, const auto& characteristic, const MaybeError& error) {
          lastError->set(error);
          forward(peripheral, characteristic, error);
        },
        observed(observation_, facade->didUpdateValueForCharacteristicBlock()));
  }
  void setOnNotification(NotificationObserver onNotification) override {
    observation_->set(std::move(onNotification));
  }
  void setOnDisconnect(std::function<void()> onDisconnect) override {
    device_->setOnDisconnect(std::move(onDisconnect));
  }
  void disconnect() override { device_->disconnect(); }
  MaybeError writeError() const override { return lastError_->get(); }
  std::function<void()> interruptAction() const override { return interruptActionFor(device_, interrupt_); }

 private:
  const std::shared_ptr<Observation> observation_ = std::make_shared<Observation>();
  const std::shared_ptr<LastError> lastError_ = std::make_shared<LastError>();
  const Device device_;
  Interrupt& interrupt_;
};

}  // namespace

std::unique_ptr<RecorderConnection> connectSimulated(const std::shared_ptr<Scheduler>& scheduler,
                                                     const std::string& folder) {
  return std::make_unique<SimulatedConnection>(openSimulator(scheduler, folder));
}

std::unique_ptr<RecorderConnection> connectOverBluetooth(const std::shared_ptr<Scheduler>& scheduler,
                                                         Interrupt& interrupt, const std::string& address) {
  const Device device = bluez::Device::create(scheduler, address);
  interrupt.setAction(interruptActionFor(device, interrupt));
  connectTo(device, *scheduler, interrupt);
  checkChannels(*device);
  checkPacketSize(*device);
  return std::make_unique<BluetoothConnection>(device, interrupt);
}

}  // namespace kwtsdk::tool
