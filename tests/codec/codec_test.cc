#include <gtest/gtest.h>

#include <numeric>

#include "codec/error_codes.h"
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

using internal::hexString;
using internal::toData;

TEST(Hex, IsTextOfBytesAndBackWithSpoiltPairs) {
  const std::vector<std::pair<std::string, Bytes>> cases{
      {"", {}},       {"00ABff", {0, 0xAB, 0xFF}}, {"0g", {0}},     {"g0", {}}, {"  ", {}}, {" a", {0x0A}},
      {"a ", {0x0A}}, {"12g034", {0x12, 0x34}},    {"123", {0x12}}, {"1", {}},
  };
  for (const auto& [text, bytes] : cases) EXPECT_EQ(toData(text), bytes) << '"' << text << '"';
  Bytes all(256);
  std::iota(all.begin(), all.end(), std::uint8_t{0});
  EXPECT_EQ(hexString(all).substr(0, 8) + hexString(all).substr(504), "00010203fcfdfeff");
  EXPECT_EQ(toData(hexString(all)), all);
}

TEST(Hex, IntegersAndPadding) {
  using internal::littleEndianHexStringWithLength;
  const auto filled = littleEndianHexStringWithLength;
  EXPECT_EQ(filled(0x1234, 8) + filled((1ULL << 32) + 1, 8) + filled(1, 4), "341200000100000001000000");
  EXPECT_EQ(filled(1, -1), "0        01000000");  // more than 8, as printf fills it
  EXPECT_EQ(filled(1, 64), std::string(56, '0') + "01000000");
  EXPECT_EQ(internal::nzeros(3) + internal::nzeros(0) + internal::nzeros(-3), "00000  ");
  EXPECT_EQ(internal::hexToDecimal(Bytes{1, 0, 0, 0, 0, 0, 0, 1, 2}), 258U);
  EXPECT_EQ(internal::reverse(Bytes{1, 2, 3}), (Bytes{3, 2, 1}));
}

TEST(ByteSlice, KeepsItsBounds) {
  const Bytes data{1, 2, 3, 4};
  EXPECT_EQ(subDataWithRange(data, 2, 2), (Bytes{3, 4}));
  EXPECT_EQ(subDataWithRange(data, 4, 0), Bytes{});
  EXPECT_EQ(subDataWithRange(data, 3, 2), std::nullopt);
  EXPECT_EQ(subDataWithRange(data, ~0ULL, 2), std::nullopt);  // the sum of both wraps to 1
}

TEST(Errors, TextsAreFilledLikePrintf) {
  EXPECT_EQ(errorWithInfo(1003, "录音类型输入错误"),
            Error("com.kwt.sdk", 1003, {{"NSLocalizedDescription", "录音类型输入错误"}}));
  const auto text = [](const char* format, auto... arguments) {
    return errorWithInfo(1, format, arguments...).localizedDescription();
  };
  const std::pair<std::string, const char*> cases[]{
      {text(nullptr), "error!"},
      {text("找不到特征值：%@", std::string("C92A")), "找不到特征值：C92A"},
      {text("cmdType:%d, x", std::int64_t{11}), "cmdType:11, x"},
      {text("%ld %lu %5.1f%% %08x %c", -1L, ~0ULL, 2.25, 255U, 'k'),
       "-1 18446744073709551615   2.2% 000000ff k"},
      {text("%@ %@", "one"), "one %@"},
      {text("%x %lx %hhX %hd %u", -1, -1L, 0x1FF, 70000, -1), "ffffffff ffffffffffffffff FF 4464 4294967295"},
      {text("%*d|%-*d|%.*f|%.3d|%+i", 5, 42, 4, 7, 1, 2.25, 5, 3), "   42|7   |2.2|005|+3"},
      {text("%*d|%.*d|%5.2s|%-4@|%.s|%3c", -3, 1, -1, 2, "text", "ab", "gone", 'x'), "1  |2|   te|ab  ||  x"},
      {text("%d %d", KWTCmdTypeUpdateDone, LogLevel::error), "18 2"},
      {text("%@, %@", Error("radio", 7, {{"NSLocalizedDescription", "gone"}}), MaybeError()),
       "Error Domain=radio Code=7 \"gone\", (null)"},
      {text("%*d", 5), "%*d"},
      {text("", 5), ""}};
  for (const auto& [filled, expected] : cases) EXPECT_EQ(filled, expected);
  EXPECT_EQ(internal::monitorTimeoutError().localizedDescription(), "命令执行超时");
  EXPECT_EQ(timeoutError(), Error("com.kwt.sdk", 999, {{"NSLocalizedDescription", "timeout"}}));
  EXPECT_EQ(Error("d", 1, {}).localizedDescription(), "");
}

TEST(Uuids, ShortAndLongFormsAreOneValue) {
  const auto shortForm = Uuid::fromString("c92a").value();
  const auto longForm = Uuid::fromString("0000c92a-0000-1000-8000-00805f9b34fb");
  EXPECT_EQ(shortForm, longForm);
  EXPECT_EQ(std::hash<Uuid>{}(shortForm), std::hash<Uuid>{}(longForm.value()));
  EXPECT_NE(shortForm, Uuid::fromString("CA2A"));
  EXPECT_EQ(shortForm.toString(), "0000C92A-0000-1000-8000-00805F9B34FB");
  for (const char* bad : {"", "C92", "C92AA", "G92A", "0000C92A00001000800000805F9B34FB",
                          "0000C92A-0000-1000-8000-00805F9B34F", "0000C92A-0000-1000-8000_00805F9B34FB"})
    EXPECT_EQ(Uuid::fromString(bad), std::nullopt) << bad;
}

}  // namespace
}  // namespace kwtsdk::testing
