#pragma once

#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>

namespace kwtsdk {

/// One argument of a printf-style text: a whole number, a floating-point number or text.
class FormatArgument {
 public:
  template <std::signed_integral T>
  FormatArgument(T value) : value_(static_cast<std::int64_t>(value)) {}
  template <std::unsigned_integral T>
  FormatArgument(T value) : value_(static_cast<std::uint64_t>(value)) {}
  template <std::floating_point T>
  FormatArgument(T value) : value_(static_cast<double>(value)) {}
  FormatArgument(const char* text) : value_(std::string(text == nullptr ? "(null)" : text)) {}
  FormatArgument(std::string_view text) : value_(std::string(text)) {}
  FormatArgument(std::string text) : value_(std::move(text)) {}

  using Value = std::variant<std::int64_t, std::uint64_t, double, std::string>;
  const Value& value() const { return value_; }

 private:
  Value value_;
};

}  // namespace kwtsdk
