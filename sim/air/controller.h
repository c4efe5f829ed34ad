#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>

#include <kwtsdk/scheduler.h>

#include "sim/air/identifiers.h"
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

/// Keeps a controller advertising the recorder, from construction to destruction.
class Advertiser {
 public:
  /// What the scan response has room for.
  static constexpr std::size_t kLongestName = 29;

  /// Switches the controller on. Throws std::runtime_error whose text says what to do.
  Advertiser(std::shared_ptr<Scheduler> scheduler, ManagementSocket& management, const Controller& controller,
             std::string name);
  ~Advertiser();
  Advertiser(const Advertiser&) = delete;
  Advertiser& operator=(const Advertiser&) = delete;

  /// To be told of every event. True: another program, usually the Bluetooth service at its start, or a loss
  /// of power had ended the advertising, which goes on now. Throws when the controller has gone.
  bool follow(const ManagementSocket::Event& event);

 private:
  void switchOn(ManagementSocket::Command command);
  void advertise();
  void patiently(ManagementSocket::Command command, std::span<const std::uint8_t> parameters);

  const std::shared_ptr<Scheduler> scheduler_;
  ManagementSocket& management_;
  const Controller controller_;
  const std::string name_;
  bool powered_ = true;
};

}  // namespace kwtsdk::sim
