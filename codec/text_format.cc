#include "codec/text_format.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>

namespace kwtsdk::internal {
namespace {

constexpr std::int64_t kMostCharacters = 65535;

bool isOneOf(char c, std::string_view set) { return set.find(c) != std::string_view::npos; }

/// A number in a placeholder: written out, or "*" for the next argument.
struct Count {
  bool given = false, fromArgument = false;
  std::int64_t value = 0;
};

struct Placeholder {
  std::string flags;
  Count width, precision;
  std::string_view length;
  char conversion = '\0';
  std::string_view text;  // all of it, '%' included
};

class PlaceholderParser {
 public:
  explicit PlaceholderParser(std::string_view text) : text_(text) {}

  /// None when the text, which begins with '%', ends before the placeholder does.
  std::optional<Placeholder> parse() {
    Placeholder found;
    found.flags = takeAll("-+ #0'");
    found.width = takeCount();
    if (at_ < text_.size() && text_[at_] == '.') {
      ++at_;
      found.precision = takeCount();
      found.precision.given = true;  // a lone point is a precision of 0
    }
    found.length = takeAll("hlqjztL");
    if (at_ >= text_.size()) return std::nullopt;
    found.conversion = text_[at_++];
    found.text = text_.substr(0, at_);
    return found;
  }

 private:
  std::string_view takeAll(std::string_view set) {
    const std::size_t end = std::min(text_.find_first_not_of(set, at_), text_.size());
    const std::string_view taken = text_.substr(at_, end - at_);
    at_ = end;
    return taken;
  }

  Count takeCount() {
    if (at_ < text_.size() && text_[at_] == '*') {
      ++at_;
      return {true, true, 0};
    }
    const std::string_view digits = takeAll("0123456789");
    Count count{!digits.empty(), false, 0};
    const auto [end, problem] = std::from_chars(digits.data(), digits.data() + digits.size(), count.value);
    if (problem == std::errc::result_out_of_range) count.value = kMostCharacters;
    return count;
  }

  const std::string_view text_;
  std::size_t at_ = 1;
};

/// What a placeholder makes of its argument, once its counts are known.
class Printer {
 public:
  Printer(const Placeholder& placeholder, unsigned argumentBits)
      : placeholder_(placeholder), bits_(bitsOf(placeholder.length, argumentBits)) {}

  std::string operator()(std::int64_t value) const {
    return integer(static_cast<std::uint64_t>(value), "%lld", value);
  }
  std::string operator()(std::uint64_t value) const { return integer(value, "%llu", value); }
  std::string operator()(double value) const {
    return isOneOf(placeholder_.conversion, "eEfFgGaA") ? print(start() + placeholder_.conversion, value)
                                                        : print("%g", value);
  }
  std::string operator()(std::string value) const {
    if (!isOneOf(placeholder_.conversion, "s@")) return value;
    if (hasPrecision()) value.resize(std::min(value.size(), size(placeholder_.precision)));
    const std::size_t width = size(placeholder_.width);
    const std::size_t missing = width > value.size() ? width - value.size() : 0;
    const bool left = placeholder_.flags.find('-') != std::string::npos;
    return value.insert(left ? value.size() : 0, missing, ' ');
  }

 private:
  static unsigned bitsOf(std::string_view length, unsigned argumentBits) {
    if (length == "hh") return 8;
    if (length == "h") return 16;
    return length.empty() ? argumentBits : 64;
  }
  static std::size_t size(const Count& count) {
    return static_cast<std::size_t>(std::clamp<std::int64_t>(count.value, 0, kMostCharacters));
  }
  // A negative precision counts as none.
  bool hasPrecision() const { return placeholder_.precision.given && placeholder_.precision.value >= 0; }

  std::string start() const {
    std::string format(1, '%');
    format += placeholder_.flags;
    if (placeholder_.width.given) format += std::to_string(size(placeholder_.width));
    if (hasPrecision()) format.append(".").append(std::to_string(size(placeholder_.precision)));
    return format;
  }

  template <class T>
  std::string integer(std::uint64_t bits, const char* plain, T value) const {
    const char conversion = placeholder_.conversion;
    const unsigned unused = 64 - bits_;
    if (conversion == 'c') return print(start() + "c", static_cast<int>(bits & 0xFF));
    if (isOneOf(conversion, "di"))
      return print(start() + "lld", static_cast<long long>(bits << unused) >> unused);
    if (isOneOf(conversion, "uxXo"))
      return print(start() + "ll" + conversion, static_cast<unsigned long long>(bits << unused >> unused));
    return print(plain, value);
  }

  template <class T>
  static std::string print(const std::string& format, T value) {
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    const int length = std::snprintf(nullptr, 0, format.c_str(), value);
    std::string text(static_cast<std::size_t>(std::max(length, 0)), '\0');
    std::snprintf(text.data(), text.size() + 1, format.c_str(), value);
#pragma GCC diagnostic pop
    return text;
  }

  const Placeholder& placeholder_;
  const unsigned bits_;
};

/// Takes the arguments one after the other.
class Arguments {
 public:
  explicit Arguments(const std::vector<FormatArgument>& all) : all_(all) {}

  const FormatArgument* next() { return next_ < all_.size() ? &all_[next_++] : nullptr; }

  /// False when there is no argument for it.
  bool fill(Count& count) {
    if (!count.fromArgument) return true;
    const FormatArgument* const argument = next();
    if (argument == nullptr) return false;
    if (const auto* number = std::get_if<std::int64_t>(&argument->value())) count.value = *number;
    if (const auto* number = std::get_if<std::uint64_t>(&argument->value()))
      count.value = static_cast<std::int64_t>(*number);
    return true;
  }

 private:
  const std::vector<FormatArgument>& all_;
  std::size_t next_ = 0;
};

std::string filled(Placeholder placeholder, Arguments& arguments) {
  if (placeholder.conversion == '%') return "%";
  const bool counts = arguments.fill(placeholder.width) && arguments.fill(placeholder.precision);
  const FormatArgument* const argument = counts ? arguments.next() : nullptr;
  if (argument == nullptr) return std::string(placeholder.text);
  if (placeholder.width.value < 0) {  // from an argument: to the left
    placeholder.flags += '-';
    placeholder.width.value = -std::max(placeholder.width.value, -kMostCharacters);
  }
  return std::visit(Printer(placeholder, argument->bits()), argument->value());
}

}  // namespace

std::string formatText(std::string_view format, const std::vector<FormatArgument>& given) {
  std::string text;
  Arguments arguments(given);
  while (!format.empty()) {
    const std::size_t percent = std::min(format.find('%'), format.size());
    text += format.substr(0, percent);
    format.remove_prefix(percent);
    if (format.empty()) break;
    const auto placeholder = PlaceholderParser(format).parse();
    text += placeholder ? filled(*placeholder, arguments) : std::string(format);
    format.remove_prefix(placeholder ? placeholder->text.size() : format.size());
  }
  return text;
}

}  // namespace kwtsdk::internal
