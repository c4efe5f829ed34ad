#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk {

// The host's Bluetooth Low Energy central, as far as the library needs it. The host implements these two
// classes over its own Bluetooth stack; the library calls them from its own threads and from the host's, and
// never downcasts them.

enum class PeripheralState : std::int64_t {
  disconnected = 0,
  connecting = 1,
  connected = 2,
  disconnecting = 3
};
enum class WriteType { withResponse = 0, withoutResponse = 1 };

/// Bits of Characteristic::properties (Bluetooth Core standard, Volume 3, Part G, 3.3.1.1).
namespace characteristic_property {
inline constexpr std::uint32_t write = 0x08, notify = 0x10, indicate = 0x20;
}  // namespace characteristic_property

/// One GATT characteristic. The object's identity matters: events must name the object that was registered.
class KWTSDK_EXPORT Characteristic {
 public:
  virtual ~Characteristic() = default;
  virtual Uuid UUID() const = 0;
  virtual std::uint32_t properties() const = 0;

  /// What was last read or notified; none before. A copy, safe on any thread.
  virtual std::optional<Bytes> value() const = 0;
};

/// The connected recorder. Every member is called from several threads and must return soon: writes and
/// subscriptions are started, never waited for, and reach the device in the order in which they were asked.
/// writeValue and setNotifyValue may be called while the library holds the lock of its dispatcher: they must
/// not wait for another thread that is inside a library operation.
class KWTSDK_EXPORT Peripheral {
 public:
  virtual ~Peripheral() = default;
  virtual PeripheralState state() const = 0;

  /// Starts a write. Its acknowledgement or failure comes back through didWriteValueForCharacteristic.
  virtual void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& forCharacteristic,
                          WriteType type) = 0;
  virtual void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& forCharacteristic) = 0;

  /// The most bytes that one write of this type carries.
  virtual std::size_t maximumWriteValueLengthForType(WriteType type) const = 0;
};

}  // namespace kwtsdk
