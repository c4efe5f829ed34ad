#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/time_zone.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {
namespace {

// A file info reply with the given fields, the bytes nobody reads set to EE.
std::string infoReply(const std::string& presence, const std::string& blocks, const std::string& time) {
  return "02822400" + presence + "eeee" + blocks + std::string(32, 'e') + time + "07" + "eeeeeeeeee";
}

TEST(Decoders, ReadTheirFieldsAndNothingElse) {
  using Decoder = std::function<std::string(const std::optional<std::string>&)>;
  const auto zeros = [](std::size_t count) { return std::string(count, '0'); };
  const Decoder power = [](auto&reply) { return shown(KWTCmdResponse::getPower(reply)); },
                version = [](auto&reply) { return KWTCmdResponse::getVersion(reply); },
                mtu = [](auto&reply) { return shown(KWTCmdResponse::getMTU(reply)); },
                capacity = [](auto&reply) { return shown(KWTCmdResponse::getCapacityResult(reply)); },
                deletion = [](auto&reply) { return shown(KWTCmdResponse::getDeleteFileResult(reply)); },
                count = [](auto&reply) {
                  const auto info = KWTCmdResponse::getFlashInfo(reply);
                  return info ? shown(info->Num) + "," + shown(info->FirstID) : "none";
                };
  const std::string level = "99ec" + zeros(44) + "64000000", head = "8f42455354", crc = "aabbccdd",
                    status = "99ec3a00b2" + zeros(38);
  // What it makes of no reply, and of others: "<reply>=<value>".
  const std::tuple<Decoder, const char*, Lines> cases[]{
      {power, "0", {level + "=100", level.substr(0, 55) + "=0"}},
      {version,
       "",
       {head + "00010203" + crc + "=1.2.3", head + "01000a" + crc + "=1.0.10",
        head + "00000205" + crc + "=2.5", head + "01zz02" + crc + "=1.0.2", head + "0000" + crc + "=",
        head + crc + "=", head + "00aabb=", "="}},
      {mtu, "0", {"8142455354f400=244", "0002=512", "002=0"}},
      {capacity,
       "none",
       {status + "40002000" + zeros(8) + "=2097152,1048576",
        status + "ffffffff" + zeros(8) + "=2147450880,2147450880", status + "40002000" + zeros(10) + "=none",
        "99EC3A00B2" + zeros(54) + "=none", zeros(64) + "=none", "=none"}},
      {count,
       "none",
       {"01820800030000000a000000=3,10", "01820800030000000a00000099=3,10", "01820800ffff00000a000000=0,0",
        "0182080003000000FFFFffff=0,0", "01820800030000000a0000=none", "01820900030000000a000000=none",
        "=none"}},
      {deletion,
       "none",
       {"04820800070000000a000000=7,10", "04820800070000000a0000=7,0", "04820800070000=none",
        "13820800070000000a000000=none"}}};
  for (const auto& [decode, ofNone, others] : cases) {
    EXPECT_EQ(decode(std::nullopt), ofNone);
    for (const std::string& line : others)
      EXPECT_EQ(decode(line.substr(0, line.find('='))), line.substr(line.find('=') + 1)) << line;
  }
}

TEST(Decoders, CheckTheRepliesThatHaveAPattern) {
  const std::string zeros(36, '0'), rest(22, '0'), status = "99ec" + zeros + "03" + rest,
                                                   begun = "8142455354" + std::string(11, '0');
  // Those that are right and those that are not. 9101 is the partition selection's answer, under the number
  // of the preparation's.
  const std::tuple<std::int64_t, Lines, Lines> cases[]{
      {1, {status}, {status.substr(0, 62), "99ec" + zeros + "04" + rest}},
      {11, {"9801"}, {"980", "9101"}},
      {13, {begun + "0"}, {begun}},
      {14, {"8700"}, {}},
      {16, {}, {"8401"}},
      {17, {"8401"}, {}},
      {19, {""}, {}}};
  for (const auto& [type, right, wrong] : cases) {
    const auto response = KWTCmdResponse::responseWithCmdType(type, nullptr);
    for (const std::string& reply : right) EXPECT_TRUE(response.isValidResponse(reply)) << reply;
    for (const std::string& reply : wrong) EXPECT_FALSE(response.isValidResponse(reply)) << reply;
  }
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
  EXPECT_EQ(header->created(), dateFromString("2024-5-17 10:30", "%Y-%m-%d %H:%M"));
  const auto absent = KWTCmdResponse::getFileInfo(infoReply("02000000", "ffff", "ffffffffffff"));
  EXPECT_FALSE(absent->exist());
  EXPECT_EQ(absent->filesize(), 2147450880U);
  for (const char* time : {"ffffffffffff", "ffff01ffffff", "ffff00ffffff", "180d110a1e00", "1805200a1e00"})
    EXPECT_FALSE(KWTCmdResponse::getFileInfo(infoReply("01000000", "0200", time))->creatTime()) << time;
  for (const std::string& bad :
       {good.substr(0, 79), "03" + good.substr(2), good.substr(0, 40) + "zz" + good.substr(42)})
    EXPECT_FALSE(KWTCmdResponse::getFileInfo(bad)) << bad;
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
  setZone(kBerlin);
  EXPECT_EQ(at("2024-7-1 12:0:0"), *summer - std::chrono::hours(1));  // daylight saving would make it two
  setZone("UTC");
  EXPECT_EQ(KWTFileTime::fileTimeWithYear(256 + 24, 5, 17, 9, 30, 0).year(), 24);
  EXPECT_FALSE(KWTFileTime::fileTimeStruct(nullptr));
}

TEST(DownloadPacket, WritesWhatThePacketHolds) {
  const std::string number = "00000000", data = number + std::string(168, 'a');
  const std::tuple<std::string, std::int64_t, std::uint64_t, std::uint64_t> cases[]{
      {"03825c0054000000" + data, 0, 84, 84},
      {"03825c0014000000" + data, 1, 20, 84},
      {"03825c0000000000" + data, 1, 0, 84},
      {"03825c00ffffffff" + data, 2, 9, 0},
      {"03825c00ffffffff", 2, 9, 0},
      {"03825c00ffffff", 0, 9, 0},
      {"03825c0055000000" + data + "aa", 0, 9, 0},  // more than its length field allows
      {"04825c0054000000" + data, 0, 9, 0},
      {"03825c0054000000" + data.substr(0, 175), 0, 9, 0},  // a byte short
      {"03825c0014000000" + data.substr(0, 69), 1, 20, 30},
      {"0382070014000000" + data, 1, 20, 84},  // the length wraps
      {"0382a800a0000000" + data + std::string(168, 'a'), 0, 160, wire::kDownloadDataSize},
      {"", 0, 9, 0}};
  for (const auto& [packet, result, size, written] : cases) {
    const TemporaryFolder folder;
    const auto file = getFileHandleForWrite(folder.file("f"));
    std::uint64_t stored = 9;
    EXPECT_EQ(KWTCmdResponse::writeDownloadData(packet, &stored, file), result) << packet;
    EXPECT_EQ(stored, size) << packet;
    EXPECT_EQ(contentOf(folder.file("f")), std::string(written, '\xaa')) << packet;
    EXPECT_EQ(KWTCmdResponse::writeDownloadData(packet, nullptr, nullptr), result) << packet;
  }
  EXPECT_EQ(KWTCmdResponse::writeDownloadData(std::nullopt, nullptr, nullptr), 0);
}

}  // namespace
}  // namespace kwtsdk::testing
