#include <gtest/gtest.h>

#include "codec/hex.h"
#include "update/update_handshake.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::internal {
namespace {

using namespace wire;

TEST(UpdateFrames, AreWhatRecordersExpect) {
  Bytes thousand(1000);
  for (std::size_t i = 0; i < thousand.size(); ++i) thousand[i] = static_cast<std::uint8_t>(i * 7);
  const auto zeros = [](std::size_t bytes) { return std::string(2 * bytes, '0'); };
  const std::vector<std::pair<Bytes, std::string>> cases{
      {prepareRequest(), "9701"},
      {selectionRequest(), "9000"},
      {resumeRequest(8192, 0), "8c42455354" + zeros(32) + "0020000035f4fb52"},
      {resumeRequest(8192, 0xFF12345678), "8c42455354" + zeros(28) + "7856341200200000c42380e8"},
      {beginRequest(thousand), "8042455354e8030000ffd54a11"},
      {configRequest("aabbcc00"), "8658000000aabbcc00" + zeros(80) + "276578c3"},
      {configRequest(""), "8658000000" + zeros(80) + "e58f0885"},  // no identity
      {dataRequest(toData("00ff")), "8500ff"},
      {checkRequest(toData("010203")), "82424553541d80bc55"},
      {byeRequest(), "88"},
      {doneRequest(), "9242455354"},
  };
  for (const auto& [frame, text] : cases) EXPECT_EQ(hexString(frame), text);
  EXPECT_EQ(identifyImage(toData("0011aabbccdd")), "aabbcc00");
  EXPECT_EQ(identifyImage(toData("aabbcc")), std::nullopt);
}

}  // namespace
}  // namespace kwtsdk::internal
