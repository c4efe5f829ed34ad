// What the recorder says of its files, as values.

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"
#include "codec/text_format.h"
#include "wire/recorder_channel.h"

namespace kwtsdk {
namespace {

using internal::littleEndianField;

// Of the 32-byte record in a file's information, in bytes.
constexpr std::size_t kRecordSize = 32, kBlocksOffset = 2, kTimeOffset = 20, kTypeOffset = 26;

bool isAllOnes(std::string_view field) {
  return std::all_of(field.begin(), field.end(), [](char c) { return c == 'f' || c == 'F'; });
}

bool begins(const KWTCmdResponse::Reply& reply, std::string_view family, std::size_t length) {
  return reply && reply->starts_with(family) && reply->size() >= length;
}

}  // namespace

std::uint64_t filesizeFromBlockNum(std::uint32_t blocks) { return blocks * wire::kBlockSize; }

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

// With strptime and mktime alone a February 31 would be March 3.
std::optional<Date> KWTFileTime::instant() const {
  constexpr int century = 2000, lastOfCentury = 99, firstYearOfTm = 1900;
  const std::chrono::year_month_day date(std::chrono::year(century + year_), std::chrono::month(month_),
                                         std::chrono::day(day_));
  if (year_ > lastOfCentury || !date.ok() || hour_ > 23 || minute_ > 59 || second_ > 59) return std::nullopt;
  std::tm fields{};
  fields.tm_year = century + year_ - firstYearOfTm;
  fields.tm_mon = month_ - 1;
  fields.tm_mday = day_;
  fields.tm_hour = hour_;
  fields.tm_min = minute_;
  fields.tm_sec = second_;
  fields.tm_isdst = -1;  // mktime finds out. An hour that the wall clock skips the recorder's need not skip.
  const std::time_t seconds = std::mktime(&fields);
  if (seconds == -1) return std::nullopt;
  return Date(std::chrono::seconds(seconds));
}

KWTFileHeader KWTFileHeader::headerWithCreatTime(const std::optional<KWTFileTime>& creatTime,
                                                 std::int64_t recordType, std::uint64_t filesize,
                                                 bool exist) {
  KWTFileHeader header;
  header.creatTime_ = creatTime ? creatTime->toDate() : std::nullopt;
  header.created_ = creatTime ? creatTime->instant() : std::nullopt;
  header.recordType_ = recordType;
  header.filesize_ = filesize;
  header.exist_ = exist;
  return header;
}

std::optional<FlashInfo> KWTCmdResponse::getFlashInfo(const Reply& reply) {
  if (!begins(reply, wire::kFlashInfo, 24)) return std::nullopt;
  const std::string_view text = *reply;
  // An erased flash reads all ones: the store is empty.
  if (isAllOnes(text.substr(8, 4)) || isAllOnes(text.substr(16, 8))) return FlashInfo{};
  return FlashInfo{.Num = littleEndianField(text, 8, 4), .FirstID = littleEndianField(text, 16, 8)};
}

std::optional<KWTFileHeader> KWTCmdResponse::getFileInfo(const Reply& reply) {
  if (!begins(reply, wire::kFileInfo, 80)) return std::nullopt;
  const Bytes record = internal::toData(std::string_view(*reply).substr(16, 64));
  if (record.size() != kRecordSize) return std::nullopt;
  const auto blocks = static_cast<std::uint32_t>(record[kBlocksOffset] | record[kBlocksOffset + 1] << 8);
  return KWTFileHeader::headerWithCreatTime(KWTFileTime::fileTimeStruct(&record[kTimeOffset]),
                                            record[kTypeOffset], filesizeFromBlockNum(blocks),
                                            littleEndianField(*reply, 8, 8) == 1);
}

std::optional<ByteCounts> KWTCmdResponse::getDeleteFileResult(const Reply& reply) {
  if (!begins(reply, wire::kDeleteResult, 16)) return std::nullopt;
  // A reply cut short after the code still tells that the recorder refused.
  const std::uint64_t second = reply->size() < 24 ? 0 : littleEndianField(*reply, 16, 8);
  return ByteCounts{littleEndianField(*reply, 8, 8), second};
}

}  // namespace kwtsdk
