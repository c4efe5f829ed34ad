#pragma once

#include <cstdint>
#include <string>

#include "sim/air/bluetooth_address.h"
#include "sim/air/management_socket.h"

namespace kwtsdk::sim {

/// A Bluetooth controller of this machine.
struct Controller {
  std::uint16_t index = 0;
  BluetoothAddress address;
  std::uint32_t settings = 0;  // those of ManagementSocket::Setting

  std::string name() const { return "hci" + std::to_string(index); }
};

/// The one of this name or address; "": the first. Throws std::runtime_error whose text says which there are.
Controller findController(ManagementSocket& management, const std::string& wanted);

}  // namespace kwtsdk::sim
