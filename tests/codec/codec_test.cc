#include <gtest/gtest.h>

#include <numeric>

#include "codec/error_codes.h"
#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

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
  const auto text = littleEndianHexStringWithLength;
  EXPECT_EQ(text(0x1234, 8) + text((1ULL << 32) + 1, 8) + text(1, 4), "341200000100000001000000");
  EXPECT_EQ(text(1, -1), "0        01000000");  // more than 8, as printf fills it
  EXPECT_EQ(text(1, 64), std::string(56, '0') + "01000000");
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
}  // namespace kwtsdk
