#include "codec/text_format.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>

namespace kwtsdk::internal {
namespace {

struct Placeholder {
  std::string flagsAndWidth;  // what stood between '%' and the length modifier
  char conversion = '\0';
  std::size_t length = 0;  // characters of the format it took, '%' included
};

// Parses the placeholder that begins at text[0] == '%'; none when it does not end.
std::optional<Placeholder> parsePlaceholder(std::string_view text) {
  const std::size_t modifier = std::min(text.find_first_not_of("-+ #0123456789.", 1), text.size());
  const std::size_t conversion = text.find_first_not_of("hlqjzt", modifier);
  if (conversion == std::string_view::npos) return std::nullopt;
  return Placeholder{std::string(text.substr(1, modifier - 1)), text[conversion], conversion + 1};
}

template <class T>
std::string print(const std::string& format, T value) {
  constexpr std::size_t kMost = 512;  // a width in a format is written by a programmer; more is cut off
  std::array<char, kMost> buffer{};
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
  const int length = std::snprintf(buffer.data(), buffer.size(), format.c_str(), value);
#pragma GCC diagnostic pop
  return {buffer.data(), std::min(static_cast<std::size_t>(std::max(length, 0)), buffer.size() - 1)};
}

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

struct Printer {
  const Placeholder& placeholder;

  std::string operator()(std::int64_t value) const { return integer(value, "lld"); }
  std::string operator()(std::uint64_t value) const { return integer(value, "llu"); }
  std::string operator()(double value) const {
    return isOneOf(placeholder.conversion, "eEfFgGaA")
               ? print("%" + placeholder.flagsAndWidth + placeholder.conversion, value)
               : print("%g", value);
  }
  std::string operator()(const std::string& value) const { return value; }

 private:
  template <class T>
  std::string integer(T value, const char* plain) const {
    const char conversion = placeholder.conversion;
    const std::string start = "%" + placeholder.flagsAndWidth;
    if (conversion == 'c') return {static_cast<char>(value)};
    if (conversion == 'd' || conversion == 'i') return print(start + "lld", static_cast<long long>(value));
    if (isOneOf(conversion, "uxXo"))
      return print(start + "ll" + conversion, static_cast<unsigned long long>(value));
    return print(std::string("%") + plain, value);
  }
};

}  // namespace

std::string formatText(std::string_view format, const std::vector<FormatArgument>& arguments) {
  std::string text;
  std::size_t next = 0;
  while (!format.empty()) {
    const std::size_t percent = std::min(format.find('%'), format.size());
    text += format.substr(0, percent);
    format.remove_prefix(percent);
    if (format.empty()) break;
    const auto placeholder = parsePlaceholder(format);
    const std::size_t length = placeholder ? placeholder->length : format.size();
    if (placeholder && placeholder->conversion == '%') {
      text += '%';
    } else if (placeholder && next < arguments.size()) {
      text += std::visit(Printer{*placeholder}, arguments[next++].value());
    } else {
      text += format.substr(0, length);
    }
    format.remove_prefix(length);
  }
  return text;
}

}  // namespace kwtsdk::internal
