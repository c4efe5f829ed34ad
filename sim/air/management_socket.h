#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <span>
#include <stdexcept>

#include <kwtsdk/bytes.h>

#include "platform/posix/files.h"

namespace kwtsdk::sim {

/// The controller is at another command of the same kind.
struct ControllerBusy : std::runtime_error {
  using std::runtime_error::runtime_error;
};

/// The kernel's Bluetooth management interface: commands to controllers, and events about them.
class ManagementSocket {
 public:
  enum Command : std::uint16_t {
    readControllerIndexList = 0x0003,
    readControllerInformation = 0x0004,
    setPowered = 0x0005,
    setLowEnergy = 0x000D,
    disconnect = 0x0014,
    addAdvertising = 0x003E,
    removeAdvertising = 0x003F,
  };
  enum EventCode : std::uint16_t {
    commandComplete = 0x0001,
    commandStatus = 0x0002,
    indexRemoved = 0x0005,
    newSettings = 0x0006,
    advertisingRemoved = 0x0024,
  };
  enum Setting : std::uint32_t { powered = 1U << 0, lowEnergy = 1U << 9 };

  /// The index of commands that name no controller.
  static constexpr std::uint16_t kNoController = 0xFFFF;

  struct Event {
    std::uint16_t code, controller;
    Bytes parameters;
  };

  /// Throws std::runtime_error whose text says what to do, as command() does.
  ManagementSocket();

  int descriptor() const { return socket_.get(); }

  /// What the command returns. Blocks until it is complete.
  Bytes command(Command command, std::uint16_t controller, std::span<const std::uint8_t> parameters = {});

  /// Those that have arrived, one at a time; none when there is no more. Never blocks. Throws as the others.
  std::optional<Event> nextEvent();

 private:
  std::optional<Event> receive(int flags) const;

  const internal::Descriptor socket_;
  std::deque<Event> events_;  // that arrived while a command's answer was awaited
};

}  // namespace kwtsdk::sim
