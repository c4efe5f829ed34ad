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

class InUtc : public ::testing::Test {
 protected:
  void SetUp() override { setZone("UTC"); }
  void TearDown() override { setZone("UTC"); }
  static void setZone(const char* zone) {
    ::setenv("TZ", zone, 1);
    ::tzset();
  }
};

TEST_F(InUtc, CountAndFirstId) {
  const std::vector<std::pair<std::string, std::optional<FlashInfo>>> cases{
      {"01820800"
       "0300"
       "0000"
       "0a000000",
       FlashInfo{3, 10}},
      {"01820800"
       "0300"
       "0000"
       "0a000000"
       "99",
       FlashInfo{3, 10}},
      {"01820800"
       "ffff"
       "0000"
       "0a000000",
       FlashInfo{0, 0}},
      {"01820800"
       "0300"
       "0000"
       "FFFFffff",
       FlashInfo{0, 0}},
      {"01820800"
       "0300"
       "0000"
       "0a0000",
       std::nullopt},
      {"01820900"
       "0300"
       "0000"
       "0a000000",
       std::nullopt},
      {"", std::nullopt},
  };
  for (const auto& [reply, info] : cases) EXPECT_EQ(KWTCmdResponse::getFlashInfo(reply), info) << reply;
  EXPECT_EQ(KWTCmdResponse::getFlashInfo(std::nullopt), std::nullopt);
}

TEST_F(InUtc, FileInfo) {
  const auto header = KWTCmdResponse::getFileInfo(infoReply("01000000", "0200", "1805110a1e00"));
  ASSERT_TRUE(header);
  EXPECT_TRUE(header->exist());
  EXPECT_EQ(header->filesize(), 65536U);
  EXPECT_EQ(header->recordType(), 7);
  EXPECT_EQ(header->creatTime(), Date(std::chrono::sys_days{std::chrono::year{24} / 5 / 17}) +
                                     std::chrono::hours(10) + std::chrono::minutes(30));
  EXPECT_FALSE(KWTCmdResponse::getFileInfo(infoReply("02000000", "ffff", "ffffffffffff"))->exist());
  EXPECT_EQ(KWTCmdResponse::getFileInfo(infoReply("02000000", "ffff", "ffffffffffff"))->filesize(),
            2147450880U);
  for (const char* time : {"ffffffffffff", "ffff01ffffff", "ffff00ffffff", "180d110a1e00", "1805200a1e00"}) {
    EXPECT_EQ(KWTCmdResponse::getFileInfo(infoReply("01000000", "0200", time))->creatTime(), std::nullopt)
        << time;
  }
  const std::string good = infoReply("01000000", "0200", "1805110a1e00");
  for (const std::string& bad :
       {good.substr(0, 79), "03" + good.substr(2), good.substr(0, 40) + "zz" + good.substr(42)}) {
    EXPECT_FALSE(KWTCmdResponse::getFileInfo(bad)) << bad;
  }
}

TEST_F(InUtc, DeletionResult) {
  EXPECT_EQ(KWTCmdResponse::getDeleteFileResult("04820800"
                                                "07000000"
                                                "0a000000"),
            (ByteCounts{7, 10}));
  EXPECT_EQ(KWTCmdResponse::getDeleteFileResult("04820800"
                                                "07000000"
                                                "0a0000"),
            (ByteCounts{7, 0}));
  EXPECT_EQ(KWTCmdResponse::getDeleteFileResult("04820800"
                                                "070000"),
            std::nullopt);
  EXPECT_EQ(KWTCmdResponse::getDeleteFileResult("13820800"
                                                "07000000"
                                                "0a000000"),
            std::nullopt);
}

TEST_F(InUtc, DatesAreLocalStandardTime) {
  const auto at = [](const char* text) { return dateFromString(text, "%Y-%m-%d %H:%M:%S"); };
  EXPECT_EQ(at("1970-1-1 0:0:0"), Date{});
  EXPECT_EQ(at("1969-12-31 23:59:59"), Date{} - std::chrono::seconds(1));
  EXPECT_EQ(at("2023-2-31 0:0:0"), at("2023-3-3 0:0:0"));
  EXPECT_EQ(at("2023-13-1 0:0:0"), std::nullopt);
  const auto summer = at("2024-7-1 12:0:0");
  setZone("CET-1CEST,M3.5.0,M10.5.0/3");
  EXPECT_EQ(at("2024-7-1 12:0:0"), *summer - std::chrono::hours(1));  // daylight saving would make it two
  EXPECT_EQ(KWTFileTime::fileTimeWithYear(256 + 24, 5, 17, 9, 30, 0).year(), 24);
  EXPECT_FALSE(KWTFileTime::fileTimeStruct(nullptr));
}

TEST(DownloadPacket, WritesWhatThePacketHolds) {
  const std::string data = std::string(168, 'a');
  struct Case {
    std::string packet;
    std::int64_t result;
    std::uint64_t size, fileSize;
  };
  const std::string number = "00000000";
  const std::vector<Case> cases{
      {"03825c00"
       "54000000" +
           number + data,
       0, 84, 84},
      {"03825c00"
       "14000000" +
           number + data,
       1, 20, 84},
      {"03825c00"
       "00000000" +
           number + data,
       1, 0, 84},
      {"03825c00"
       "ffffffff" +
           number + data,
       2, 9, 0},
      {"03825c00"
       "ffffffff",
       2, 9, 0},
      {"03825c00"
       "ffffff",
       0, 9, 0},
      {"03825c00"
       "55000000" +
           number + data + "aa",
       0, 9, 0},  // more than its length field allows
      {"04825c00"
       "54000000" +
           number + data,
       0, 9, 0},
      {"03825c00"
       "54000000" +
           number + data.substr(2),
       0, 9, 0},  // a byte short
      {"03825c00"
       "14000000" +
           number + data.substr(0, 60),
       1, 20, 30},
      {"03820700"
       "14000000" +
           number + data,
       1, 20, 84},  // the length wraps
      {"0382a800"
       "a0000000" +
           number + data + data,
       0, 160, 84},
      {"", 0, 9, 0},
  };
  for (const auto& [packet, result, size, written] : cases) {
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
