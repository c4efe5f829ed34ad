#include "session/creation_time.h"

#include <chrono>

namespace kwtsdk::session::detail {
namespace {

constexpr int kCentury = 2000, kFirstYearOfTm = 1900;
constexpr std::size_t kFields = 6;

bool isPossible(const KWTFileTime& time) {
  const std::chrono::year_month_day day(std::chrono::year(kCentury + time.year()),
                                        std::chrono::month(time.month()), std::chrono::day(time.day()));
  return day.ok() && time.hour() < 24 && time.minute() < 60 && time.second() < 60;
}

}  // namespace

std::optional<Date> creationTime(std::span<const std::uint8_t> sixBytes) {
  if (sixBytes.size() < kFields) return std::nullopt;
  const auto time = KWTFileTime::fileTimeStruct(sixBytes.data());
  if (!time || !isPossible(*time)) return std::nullopt;
  std::tm fields{};
  fields.tm_year = kCentury + time->year() - kFirstYearOfTm;
  fields.tm_mon = time->month() - 1;
  fields.tm_mday = time->day();
  fields.tm_hour = time->hour();
  fields.tm_min = time->minute();
  fields.tm_sec = time->second();
  fields.tm_isdst = -1;  // mktime finds out. An hour that the wall clock skips the recorder's need not skip.
  const std::time_t instant = std::mktime(&fields);
  if (instant == -1) return std::nullopt;
  return Date(std::chrono::seconds(instant));
}

std::tm wallClock(Date instant) {
  const std::time_t seconds = instant.time_since_epoch().count();
  std::tm fields{};
  ::localtime_r(&seconds, &fields);
  return fields;
}

}  // namespace kwtsdk::session::detail
