#include "sim/air/controller.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <exception>
#include <stdexcept>
#include <utility>
#include <vector>

#include "sim/byte_order.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

Controller readController(ManagementSocket& management, std::uint16_t index) {
  constexpr std::size_t settingsAt = 13;
  const Bytes information = management.command(ManagementSocket::readControllerInformation, index);
  if (information.size() < settingsAt + sizeof(std::uint32_t)) {
    throw std::runtime_error("The kernel's Bluetooth management says too little: use a newer kernel.");
  }
  Controller controller{index, {}, little32(information, settingsAt)};
  std::copy_n(information.begin(), controller.address.bytes.size(), controller.address.bytes.begin());
  return controller;
}

std::vector<Controller> readControllers(ManagementSocket& management) {
  const Bytes list =
      management.command(ManagementSocket::readControllerIndexList, ManagementSocket::kNoController);
  std::vector<Controller> controllers;
  for (std::size_t at = 2; at + 2 <= list.size(); at += 2) {
    controllers.push_back(readController(management, little16(list, at)));
  }
  std::ranges::sort(controllers, {}, &Controller::index);
  return controllers;
}

constexpr std::uint8_t kInstance = 1;

/// Types of advertising data.
enum DataType : std::uint8_t { completeUuids128 = 0x07, completeLocalName = 0x09 };

void appendData(Bytes& data, DataType type, const Bytes& content) {
  data.push_back(static_cast<std::uint8_t>(1 + content.size()));
  data.push_back(type);
  append(data, content);
}

Bytes addAdvertisingParameters(const std::string& name) {
  constexpr std::uint32_t connectable = 1U << 0, generalDiscoverable = 1U << 1;
  Bytes advertisement, scanResponse;
  appendData(advertisement, completeUuids128, attUuid(Uuid::fromString(wire::kRecorderService).value()));
  appendData(scanResponse, completeLocalName, {name.begin(), name.end()});

  constexpr std::size_t flagsAt = 1, headSize = 11;  // between them: no duration, no time-out
  Bytes parameters(headSize);
  parameters[0] = kInstance;
  putLittle32(parameters, flagsAt, connectable | generalDiscoverable);
  parameters[headSize - 2] = static_cast<std::uint8_t>(advertisement.size());
  parameters[headSize - 1] = static_cast<std::uint8_t>(scanResponse.size());
  append(parameters, advertisement);
  append(parameters, scanResponse);
  return parameters;
}

}  // namespace

Controller findController(ManagementSocket& management, const std::string& wanted) {
  const std::vector<Controller> controllers = readControllers(management);
  if (controllers.empty()) {
    throw std::runtime_error("This machine has no Bluetooth controller: plug one in, or switch it on.");
  }
  const auto address = BluetoothAddress::fromString(wanted);
  std::string names;
  for (const Controller& controller : controllers) {
    if (wanted.empty() || controller.name() == wanted || controller.address == address) return controller;
    names += (names.empty() ? "" : ", ") + controller.name() + " (" + controller.address.toString() + ")";
  }
  throw std::runtime_error("There is no Bluetooth controller " + wanted + "; name one of these: " + names +
                           ".");
}

Advertiser::Advertiser(std::shared_ptr<Scheduler> scheduler, ManagementSocket& management,
                       const Controller& controller, std::string name)
    : scheduler_(std::move(scheduler)),
      management_(management),
      controller_(controller),
      name_(std::move(name)) {
  if ((controller.settings & ManagementSocket::lowEnergy) == 0) switchOn(ManagementSocket::setLowEnergy);
  if ((controller.settings & ManagementSocket::powered) == 0) switchOn(ManagementSocket::setPowered);
  advertise();
}

Advertiser::~Advertiser() {
  try {
    management_.command(ManagementSocket::removeAdvertising, controller_.index, std::array{kInstance});
  } catch (const std::exception&) {  // The controller has gone, and its advertising with it.
  }
}

bool Advertiser::follow(const ManagementSocket::Event& event) {
  if (event.controller != controller_.index) return false;
  bool ended = event.code == ManagementSocket::advertisingRemoved;
  if (event.code == ManagementSocket::indexRemoved) {
    throw std::runtime_error("The Bluetooth controller " + controller_.name() +
                             " has gone: plug it in and start again.");
  }
  if (event.code == ManagementSocket::newSettings && event.parameters.size() >= sizeof(std::uint32_t)) {
    const bool powered = (little32(event.parameters, 0) & ManagementSocket::powered) != 0;
    ended = powered && !powered_;
    powered_ = powered;
  }
  if (ended) advertise();
  return ended;
}

void Advertiser::switchOn(ManagementSocket::Command command) {
  constexpr std::uint8_t on = 1;
  patiently(command, std::array{on});
}

void Advertiser::advertise() { patiently(ManagementSocket::addAdvertising, addAdvertisingParameters(name_)); }

void Advertiser::patiently(ManagementSocket::Command command, std::span<const std::uint8_t> parameters) {
  // The Bluetooth service may have a command of its own under way.
  constexpr int attempts = 20;
  for (int attempt = 1;; ++attempt) {
    try {
      management_.command(command, controller_.index, parameters);
      return;
    } catch (const ControllerBusy&) {
      if (attempt == attempts) throw;
    }
    scheduler_->sleep(std::chrono::milliseconds(100));
  }
}

}  // namespace kwtsdk::sim
