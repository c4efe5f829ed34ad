#include <kwtsdk/file_time.h>

#include <cerrno>
#include <ctime>

#include "codec/text_format.h"

namespace kwtsdk {

std::optional<Date> dateFromString(const std::string& text, const std::string& format) {
  std::tm fields{};
  if (::strptime(text.c_str(), format.c_str(), &fields) == nullptr) return std::nullopt;
  fields.tm_isdst = 0;
  errno = 0;
  const std::time_t seconds = std::mktime(&fields);
  if (seconds == -1 && errno != 0) return std::nullopt;  // -1 is also the last second of 1969
  return Date(std::chrono::seconds(seconds));
}

KWTFileTime KWTFileTime::fileTimeWithYear(std::int64_t year, std::int64_t month, std::int64_t day,
                                          std::int64_t hour, std::int64_t minute, std::int64_t second) {
  KWTFileTime time;
  time.year_ = static_cast<std::uint8_t>(year);
  time.month_ = static_cast<std::uint8_t>(month);
  time.day_ = static_cast<std::uint8_t>(day);
  time.hour_ = static_cast<std::uint8_t>(hour);
  time.minute_ = static_cast<std::uint8_t>(minute);
  time.second_ = static_cast<std::uint8_t>(second);
  return time;
}

std::optional<KWTFileTime> KWTFileTime::fileTimeStruct(const std::uint8_t* b) {
  if (b == nullptr) return std::nullopt;
  // The day is tested for not being 0 rather than for FF: recorders send both patterns for "no time".
  const bool noTime =
      b[0] == 0xFF && b[1] == 0xFF && b[2] != 0 && b[3] == 0xFF && b[4] == 0xFF && b[5] == 0xFF;
  if (noTime) return std::nullopt;
  return fileTimeWithYear(b[0], b[1], b[2], b[3], b[4], b[5]);
}

std::optional<Date> KWTFileTime::toDate() const {
  return dateFromString(
      internal::formatText("%d-%d-%d %d:%d:%d", {year_, month_, day_, hour_, minute_, second_}),
      "%Y-%m-%d %H:%M:%S");
}

}  // namespace kwtsdk
