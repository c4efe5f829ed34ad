#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// A Bluetooth UUID as a 128-bit value. A 16-bit UUID is the long one it abbreviates on the Bluetooth Base
/// UUID 0000xxxx-0000-1000-8000-00805F9B34FB (Bluetooth Core standard, Volume 3, Part B), so both forms
/// are equal.
class KWTSDK_EXPORT Uuid {
 public:
  /// Reads "C92A" or the 36-character form in any letter case; anything else is none.
  static std::optional<Uuid> fromString(std::string_view text);

  /// The 36-character form, upper case.
  std::string toString() const;

  friend bool operator==(const Uuid&, const Uuid&) = default;
  std::size_t hash() const;

 private:
  std::array<std::uint8_t, 16> bytes_{};
};

}  // namespace kwtsdk

template <>
struct std::hash<kwtsdk::Uuid> {
  std::size_t operator()(const kwtsdk::Uuid& uuid) const noexcept { return uuid.hash(); }
};
