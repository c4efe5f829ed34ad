#include <algorithm>
#include <cctype>

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"

namespace kwtsdk {

using internal::littleEndianField;

namespace {

constexpr std::size_t kRecordSize = 32;
constexpr std::size_t kBlocksOffset = 2, kTimeOffset = 20, kTypeOffset = 26;

bool isAllOnes(std::string_view field) {
  return std::all_of(field.begin(), field.end(), [](char c) { return c == 'f' || c == 'F'; });
}

}  // namespace

KWTFileHeader KWTFileHeader::headerWithCreatTime(const std::optional<KWTFileTime>& creatTime,
                                                 std::int64_t recordType, std::uint64_t filesize,
                                                 bool exist) {
  KWTFileHeader header;
  header.creatTime_ = creatTime ? creatTime->toDate() : std::nullopt;
  header.recordType_ = recordType;
  header.filesize_ = filesize;
  header.exist_ = exist;
  return header;
}

std::optional<FlashInfo> KWTCmdResponse::getFlashInfo(const Reply& reply) {
  if (!reply || !reply->starts_with("01820800") || reply->size() < 24) return std::nullopt;
  const std::string_view text = *reply;
  // An erased flash reads all ones: the store is empty.
  if (isAllOnes(text.substr(8, 4)) || isAllOnes(text.substr(16, 8))) return FlashInfo{};
  return FlashInfo{.Num = littleEndianField(text, 8, 4), .FirstID = littleEndianField(text, 16, 8)};
}

std::optional<KWTFileHeader> KWTCmdResponse::getFileInfo(const Reply& reply) {
  if (!reply || !reply->starts_with("02822400") || reply->size() < 80) return std::nullopt;
  const Bytes record = internal::toData(std::string_view(*reply).substr(16, 64));
  if (record.size() != kRecordSize) return std::nullopt;
  const auto blocks = static_cast<std::uint32_t>(record[kBlocksOffset] | record[kBlocksOffset + 1] << 8);
  return KWTFileHeader::headerWithCreatTime(KWTFileTime::fileTimeStruct(&record[kTimeOffset]),
                                            record[kTypeOffset], filesizeFromBlockNum(blocks),
                                            littleEndianField(*reply, 8, 8) == 1);
}

std::optional<ByteCounts> KWTCmdResponse::getDeleteFileResult(const Reply& reply) {
  if (!reply || !reply->starts_with("04820800") || reply->size() < 16) return std::nullopt;
  // A reply cut short after the code still tells a refusal.
  const std::uint64_t second = reply->size() < 24 ? 0 : littleEndianField(*reply, 16, 8);
  return ByteCounts{littleEndianField(*reply, 8, 8), second};
}

}  // namespace kwtsdk
