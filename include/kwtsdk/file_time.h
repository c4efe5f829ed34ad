#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// Whole seconds since 1970-01-01 00:00:00 UTC: the year 24 does not fit in 64-bit nanoseconds.
using Date = std::chrono::sys_seconds;

/// Reads `text` with strptime and takes it as local standard time (mktime with the daylight-saving flag 0,
/// POSIX.1-2017): on a date in daylight-saving time the result lies one hour after the wall clock's reading.
/// None when the text does not fit the format or the time cannot be represented. Any thread; never blocks.
KWTSDK_EXPORT std::optional<Date> dateFromString(const std::string& text, const std::string& format);

/// A creation time as the recorder sends it: six bytes. The year is the number sent; no century is added.
class KWTSDK_EXPORT KWTFileTime {
 public:
  /// Keeps the low 8 bits of each argument.
  static KWTFileTime fileTimeWithYear(std::int64_t year, std::int64_t month, std::int64_t day,
                                      std::int64_t hour, std::int64_t minute, std::int64_t second);

  /// Reads year, month, day, hour, minute, second. None for the no-time pattern: all FF, where the day may be
  /// any value but 0. Null gives none.
  static std::optional<KWTFileTime> fileTimeStruct(const std::uint8_t* sixBytes);

  /// The local time these fields name (see dateFromString); none when they name none, such as month 13. The
  /// year 24 is that of antiquity; instant() is what people mean.
  std::optional<Date> toDate() const;

  /// The instant at which the recorder's wall clock showed these fields: years count from 2000 to
  /// 2099, the zone is this machine's, with daylight-saving time as on that date. None when no calendar has
  /// such a time.
  std::optional<Date> instant() const;

  std::uint8_t year() const { return year_; }
  void setYear(std::uint8_t year) { year_ = year; }
  std::uint8_t month() const { return month_; }
  void setMonth(std::uint8_t month) { month_ = month; }
  std::uint8_t day() const { return day_; }
  void setDay(std::uint8_t day) { day_ = day; }
  std::uint8_t hour() const { return hour_; }
  void setHour(std::uint8_t hour) { hour_ = hour; }
  std::uint8_t minute() const { return minute_; }
  void setMinute(std::uint8_t minute) { minute_ = minute; }
  std::uint8_t second() const { return second_; }
  void setSecond(std::uint8_t second) { second_ = second; }

 private:
  std::uint8_t year_ = 0, month_ = 0, day_ = 0, hour_ = 0, minute_ = 0, second_ = 0;
};

}  // namespace kwtsdk
