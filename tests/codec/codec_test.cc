#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>

#include <cstdlib>
#include <new>
#include <random>

#include "codec/crc32.h"
#include "codec/error_codes.h"
#include "codec/hex.h"

namespace {

thread_local std::size_t refusedSize = 0;

}  // namespace

// For tests of what happens without memory.
void* operator new(std::size_t size) {
  void* const memory = size == refusedSize && size != 0 ? nullptr : std::malloc(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t) noexcept { std::free(memory); }

namespace kwtsdk {
namespace {

using internal::hexString;
using internal::toData;

TEST(Hex, BytesOfTextWithSpoiltPairs) {
  const std::vector<std::pair<std::string, Bytes>> cases{
      {"", {}},       {"00ABff", {0, 0xAB, 0xFF}}, {"0g", {0}},     {"g0", {}}, {"  ", {}}, {" a", {0x0A}},
      {"a ", {0x0A}}, {"12g034", {0x12, 0x34}},    {"123", {0x12}}, {"1", {}},
  };
  for (const auto& [text, bytes] : cases) EXPECT_EQ(toData(text), bytes) << '"' << text << '"';
}

TEST(Hex, EveryByteSurvivesTheWayThereAndBack) {
  Bytes all(256);
  for (std::size_t i = 0; i < all.size(); ++i) all[i] = static_cast<std::uint8_t>(i);
  EXPECT_EQ(hexString(all).substr(0, 8) + hexString(all).substr(504), "00010203fcfdfeff");
  EXPECT_EQ(toData(hexString(all)), all);
}

TEST(Hex, IntegersAndPadding) {
  using internal::littleEndianHexStringWithLength;
  EXPECT_EQ(littleEndianHexStringWithLength(0x1234, 8), "34120000");
  EXPECT_EQ(littleEndianHexStringWithLength((1ULL << 32) + 1, 8), "01000000");
  EXPECT_EQ(littleEndianHexStringWithLength(1, 4), "01000000");
  EXPECT_EQ(littleEndianHexStringWithLength(1, -1), "0        01000000");  // more than 8, as printf fills it
  EXPECT_EQ(littleEndianHexStringWithLength(1, 64), std::string(56, '0') + "01000000");
  EXPECT_EQ(internal::nzeros(3), "000");
  EXPECT_EQ(internal::nzeros(0), "0");
  EXPECT_EQ(internal::nzeros(-3), "0  ");
  EXPECT_EQ(internal::hexToDecimal(Bytes{1, 2}), 258U);
  EXPECT_EQ(internal::hexToDecimal(Bytes{1, 0, 0, 0, 0, 0, 0, 0, 5}), 5U);
  EXPECT_EQ(internal::reverse(Bytes{1, 2, 3}), (Bytes{3, 2, 1}));
}

TEST(ByteSlice, IsNoneWhenMemoryIsShort) {
  const Bytes data(1 << 20);
  refusedSize = data.size();
  EXPECT_EQ(subDataWithRange(data, 0, data.size()), std::nullopt);
  refusedSize = 0;
}

TEST(ByteSlice, KeepsItsBounds) {
  const Bytes data{1, 2, 3, 4};
  EXPECT_EQ(subDataWithRange(data, 2, 2), (Bytes{3, 4}));
  EXPECT_EQ(subDataWithRange(data, 4, 0), Bytes{});
  EXPECT_EQ(subDataWithRange(data, 3, 2), std::nullopt);
  EXPECT_EQ(subDataWithRange(data, ~0ULL, 2), std::nullopt);  // the sum of both wraps to 1
}

TEST(Crc32, EqualsTheBitwiseDefinitionForEveryLength) {
  const std::string digits = "123456789";
  EXPECT_EQ(internal::crc32Value(Bytes(digits.begin(), digits.end())), 0xCBF43926U);
  std::mt19937 random(1);
  Bytes data;
  for (std::size_t length = 0; length < 100; ++length) {
    std::uint32_t crc = 0xFFFFFFFF;
    for (const std::uint8_t byte : data) {
      crc ^= byte;
      for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ ((crc & 1) != 0 ? 0xEDB88320 : 0);
    }
    ASSERT_EQ(internal::crc32Value(data), ~crc) << length;
    data.push_back(static_cast<std::uint8_t>(random()));
  }
}

TEST(Errors, TextsAreFilledLikePrintf) {
  EXPECT_EQ(errorWithInfo(1003, "录音类型输入错误"),
            Error("com.kwt.sdk", 1003, {{"NSLocalizedDescription", "录音类型输入错误"}}));
  const std::vector<std::pair<Error, std::string>> cases{
      {errorWithInfo(1, nullptr), "error!"},
      {errorWithInfo(1, "找不到特征值：%@", std::string("C92A")), "找不到特征值：C92A"},
      {errorWithInfo(1, "cmdType:%d, x", std::int64_t{11}), "cmdType:11, x"},
      {errorWithInfo(1, "%ld %lu %5.1f%% %08x %c", -1L, ~0ULL, 2.25, 255U, 'k'),
       "-1 18446744073709551615   2.2% 000000ff k"},
      {errorWithInfo(1, "%d %@ %f", "text", 7, 8), "text 7 8"},
      {errorWithInfo(1, "%@ %@", "one"), "one %@"},
      {errorWithInfo(1, "100% %", 5), "100%"},
      {errorWithInfo(1, "%x %lx %hhX %hd %u", -1, -1L, 0x1FF, 70000, -1),
       "ffffffff ffffffffffffffff FF 4464 4294967295"},
      {errorWithInfo(1, "%*d|%-*d|%.*f|%.3d|%+i", 5, 42, 4, 7, 1, 2.25, 5, 3), "   42|7   |2.2|005|+3"},
      {errorWithInfo(1, "%*d|%.*d|%5.2s|%-4@|%.s|%3c", -3, 1, -1, 2, "text", "ab", "gone", 'x'),
       "1  |2|   te|ab  ||  x"},
      {errorWithInfo(1, "%d %d", KWTCmdTypeUpdateDone, LogLevel::error), "18 2"},
      {errorWithInfo(1, "%@, %@", Error("radio", 7, {{"NSLocalizedDescription", "gone"}}), MaybeError()),
       "Error Domain=radio Code=7 \"gone\", (null)"},
      {errorWithInfo(1, "%*d", 5), "%*d"},
      {errorWithInfo(1, "", 5), ""},
      {timeoutError(), "timeout"},
      {internal::monitorTimeoutError(), "命令执行超时"},
  };
  for (const auto& [error, text] : cases) EXPECT_EQ(error.localizedDescription(), text);
  EXPECT_EQ(timeoutError().code(), 999);
  EXPECT_EQ(Error("d", 1, {}).localizedDescription(), "");
}

TEST(Uuids, ShortAndLongFormsAreOneValue) {
  const auto shortForm = Uuid::fromString("c92a");
  ASSERT_TRUE(shortForm);
  EXPECT_EQ(shortForm, Uuid::fromString("0000C92A-0000-1000-8000-00805F9B34FB"));
  EXPECT_EQ(std::hash<Uuid>{}(*shortForm),
            std::hash<Uuid>{}(*Uuid::fromString("0000c92a-0000-1000-8000-00805f9b34fb")));
  EXPECT_NE(shortForm, Uuid::fromString("CA2A"));
  EXPECT_EQ(shortForm->toString(), "0000C92A-0000-1000-8000-00805F9B34FB");
  for (const char* bad : {"", "C92", "C92AA", "G92A", "0000C92A00001000800000805F9B34FB",
                          "0000C92A-0000-1000-8000-00805F9B34F", "0000C92A-0000-1000-8000_00805F9B34FB"}) {
    EXPECT_EQ(Uuid::fromString(bad), std::nullopt) << bad;
  }
}

TEST(Version, NumberAndText) {
  EXPECT_EQ(kwtsdkVersionNumber, 0.5);
  EXPECT_STREQ(kwtsdkVersionString, "@(#)PROGRAM:kwtsdk  PROJECT:KWT-SDK-0.5\n");
}

}  // namespace
}  // namespace kwtsdk
