#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>

#include <cstdlib>

#include "codec/hex.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

// A file info reply with the given fields, the bytes nobody reads set to EE.
std::string infoReply(const std::string& presence, const std::string& blocks, const std::string& time) {
  return "02822400" + presence + "eeee" + blocks + std::string(32, 'e') + time + "07" + "eeeeeeeeee";
}

/// The digits without the blanks between fields.
std::string packed(std::string text) {
  std::erase(text, ' ');
  return text;
}

void setZone(const char* zone) {
  ::setenv("TZ", zone, 1);
  ::tzset();
}

TEST(Records, CountAndFirstId) {
  const std::pair<const char*, std::optional<FlashInfo>> cases[]{
      {"01820800 0300 0000 0a000000", FlashInfo{3, 10}},
      {"01820800 0300 0000 0a000000 99", FlashInfo{3, 10}},
      {"01820800 ffff 0000 0a000000", FlashInfo{0, 0}},
      {"01820800 0300 0000 FFFFffff", FlashInfo{0, 0}},
      {"01820800 0300 0000 0a0000", std::nullopt},
      {"01820900 0300 0000 0a000000", std::nullopt},
      {"", std::nullopt}};
  for (const auto& [reply, info] : cases)
    EXPECT_EQ(KWTCmdResponse::getFlashInfo(packed(reply)), info) << reply;
  EXPECT_EQ(KWTCmdResponse::getFlashInfo(std::nullopt), std::nullopt);
}

TEST(Records, FileInfo) {
  setZone("UTC");
  const std::string good = infoReply("01000000", "0200", "1805110a1e00");
  const auto header = KWTCmdResponse::getFileInfo(good);
  ASSERT_TRUE(header);
  EXPECT_TRUE(header->exist());
  EXPECT_EQ(header->filesize(), 65536U);
  EXPECT_EQ(header->recordType(), 7);
  EXPECT_EQ(header->creatTime(), dateFromString("24-5-17 10:30", "%Y-%m-%d %H:%M"));
  const auto absent = KWTCmdResponse::getFileInfo(infoReply("02000000", "ffff", "ffffffffffff"));
  EXPECT_FALSE(absent->exist());
  EXPECT_EQ(absent->filesize(), 2147450880U);
  for (const char* time : {"ffffffffffff", "ffff01ffffff", "ffff00ffffff", "180d110a1e00", "1805200a1e00"}) {
    EXPECT_EQ(KWTCmdResponse::getFileInfo(infoReply("01000000", "0200", time))->creatTime(), std::nullopt)
        << time;
  }
  for (const std::string& bad :
       {good.substr(0, 79), "03" + good.substr(2), good.substr(0, 40) + "zz" + good.substr(42)}) {
    EXPECT_FALSE(KWTCmdResponse::getFileInfo(bad)) << bad;
  }
}

TEST(Records, DeletionResult) {
  const std::pair<const char*, std::optional<ByteCounts>> cases[]{
      {"04820800 07000000 0a000000", ByteCounts{7, 10}},
      {"04820800 07000000 0a0000", ByteCounts{7, 0}},
      {"04820800 070000", std::nullopt},
      {"13820800 07000000 0a000000", std::nullopt}};
  for (const auto& [reply, result] : cases)
    EXPECT_EQ(KWTCmdResponse::getDeleteFileResult(packed(reply)), result) << reply;
}

TEST(Records, DatesAreLocalStandardTime) {
  setZone("UTC");
  const auto at = [](const char* text) { return dateFromString(text, "%Y-%m-%d %H:%M:%S"); };
  EXPECT_EQ(at("1970-1-1 0:0:0"), Date{});
  EXPECT_EQ(at("24-5-17 0:0:0"), Date(std::chrono::sys_days{std::chrono::year{24} / 5 / 17}));
  EXPECT_EQ(at("1969-12-31 23:59:59"), Date{} - std::chrono::seconds(1));
  EXPECT_EQ(at("2023-2-31 0:0:0"), at("2023-3-3 0:0:0"));
  EXPECT_EQ(at("2023-13-1 0:0:0"), std::nullopt);
  const auto summer = at("2024-7-1 12:0:0");
  setZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(at("2024-7-1 12:0:0"), *summer - std::chrono::hours(1));  // daylight saving would make it two
  setZone("UTC");
  EXPECT_EQ(KWTFileTime::fileTimeWithYear(256 + 24, 5, 17, 9, 30, 0).year(), 24);
  EXPECT_FALSE(KWTFileTime::fileTimeStruct(nullptr));
}

TEST(DownloadPacket, WritesWhatThePacketHolds) {
  const std::string number = " 00000000", data = number + std::string(168, 'a');
  const std::tuple<std::string, std::int64_t, std::uint64_t, std::uint64_t> cases[]{
      {"03825c00 54000000" + data, 0, 84, 84},
      {"03825c00 14000000" + data, 1, 20, 84},
      {"03825c00 00000000" + data, 1, 0, 84},
      {"03825c00 ffffffff" + data, 2, 9, 0},
      {"03825c00 ffffffff", 2, 9, 0},
      {"03825c00 ffffff", 0, 9, 0},
      {"03825c00 55000000" + data + "aa", 0, 9, 0},  // more than its length field allows
      {"04825c00 54000000" + data, 0, 9, 0},
      {"03825c00 54000000" + data.substr(0, 175), 0, 9, 0},  // a byte short
      {"03825c00 14000000" + data.substr(0, 69), 1, 20, 30},
      {"03820700 14000000" + data, 1, 20, 84},  // the length wraps
      {"0382a800 a0000000" + data + std::string(168, 'a'), 0, 160, 84},
      {"", 0, 9, 0}};
  for (const auto& [text, result, size, written] : cases) {
    const std::string packet = packed(text);
    const testing::TemporaryFolder folder;
    std::uint64_t stored = 9;
    EXPECT_EQ(KWTCmdResponse::writeDownloadData(packet, &stored, getFileHandleForWrite(folder.file("f"))),
              result)
        << packet;
    EXPECT_EQ(stored, size) << packet;
    EXPECT_EQ(testing::contentOf(folder.file("f")), std::string(written, '\xaa')) << packet;
    EXPECT_EQ(KWTCmdResponse::writeDownloadData(packet, nullptr, nullptr), result) << packet;
  }
  EXPECT_EQ(KWTCmdResponse::writeDownloadData(std::nullopt, nullptr, nullptr), 0);
}

}  // namespace
}  // namespace kwtsdk
