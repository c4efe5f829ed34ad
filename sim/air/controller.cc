#include "sim/air/controller.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

#include "sim/byte_order.h"

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

}  // namespace kwtsdk::sim
