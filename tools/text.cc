#include "tools/text.h"

#include <array>
#include <cstdio>
#include <ctime>

namespace kwtsdk::tool {

std::string creationTimeText(Date created, const char* format) {
  constexpr int firstYearOfTm = 1900, century = 2000;
  const std::time_t instant = created.time_since_epoch().count();
  std::tm fields{};
  ::localtime_r(&instant, &fields);
  // Recorders count years from 2000 and the library adds no century.
  if (fields.tm_year + firstYearOfTm < 100) fields.tm_year += century;
  std::array<char, 64> text{};
  return {text.data(), std::strftime(text.data(), text.size(), format, &fields)};
}

std::string bytesText(std::uint64_t count) { return std::to_string(count) + " bytes"; }

std::string secondsText(double seconds, int decimals) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.*f s", decimals, seconds);
  return text.data();
}

std::string ofBytesText(std::uint64_t done, std::uint64_t all) {
  return std::to_string(done) + " of " + bytesText(all);
}

std::string printable(std::string text) {
  const auto byteAt = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool isC1 = byteAt(i) == 0xC2 && i + 1 < text.size() && byteAt(i + 1) < 0xA0;  // in two bytes
    if (isC1) text.erase(i, 1);
    if (isC1 || byteAt(i) < 0x20 || byteAt(i) == 0x7F) text[i] = '?';
  }
  return text;
}

}  // namespace kwtsdk::tool
