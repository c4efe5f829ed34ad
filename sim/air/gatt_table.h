#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/simulated_link.h>

namespace kwtsdk::sim {

struct Attribute {
  std::uint16_t handle = 0;
  std::uint16_t groupEnd = 0;  // the last handle of a service; of everything else its own
  Uuid type;
  std::optional<Bytes> value;                      // none: cannot be read
  std::shared_ptr<Characteristic> characteristic;  // whose value or configuration this is

  bool isConfiguration() const { return characteristic && value; }
  bool isCharacteristicValue() const { return characteristic && !value; }
};

/// The attribute of handle n is the one at n - 1.
using GattTable = std::vector<Attribute>;

/// The link's characteristics in their services, and Generic Access with the device's name.
GattTable gattTable(const SimulatedLink& link, const std::string& deviceName);

}  // namespace kwtsdk::sim
