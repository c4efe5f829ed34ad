#pragma once

#include <algorithm>
#include <concepts>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <variant>

#include <kwtsdk/export.h>

namespace kwtsdk {

class Error;

/// One argument of a printf-style text: a whole number or an enumeration, which count with the size they
/// have as an argument of printf, a floating-point number, text, or an error.
class KWTSDK_EXPORT FormatArgument {
 public:
  template <std::signed_integral T>
  FormatArgument(T value) : value_(static_cast<std::int64_t>(value)), bits_(bitsOf<T>()) {}
  template <std::unsigned_integral T>
  FormatArgument(T value) : value_(static_cast<std::uint64_t>(value)), bits_(bitsOf<T>()) {}
  template <class T>
  requires std::is_enum_v<T> FormatArgument(T value)
      : FormatArgument(static_cast<std::underlying_type_t<T>>(value)) {}
  template <std::floating_point T>
  FormatArgument(T value) : value_(static_cast<double>(value)) {}
  FormatArgument(const char* text) : value_(std::string(text == nullptr ? "(null)" : text)) {}
  FormatArgument(std::string_view text) : value_(std::string(text)) {}
  FormatArgument(std::string text) : value_(std::move(text)) {}

  /// Domain, code and text.
  FormatArgument(const Error& error);
  template <std::same_as<Error> T>
  FormatArgument(const std::optional<T>& error)
      : FormatArgument(error ? FormatArgument(*error) : FormatArgument("(null)")) {}

  using Value = std::variant<std::int64_t, std::uint64_t, double, std::string>;
  const Value& value() const { return value_; }

  /// Of a whole number: at least those of an int.
  unsigned bits() const { return bits_; }

 private:
  template <class T>
  static constexpr unsigned bitsOf() {
    return 8 * static_cast<unsigned>(std::max(sizeof(T), sizeof(int)));
  }

  Value value_;
  unsigned bits_ = 64;
};

}  // namespace kwtsdk
