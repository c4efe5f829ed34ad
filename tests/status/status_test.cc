#include <gtest/gtest.h>

#include "tests/support/fake_peripheral.h"

namespace kwtsdk {
namespace {

using namespace testing;

std::string zeros(std::size_t count) { return std::string(count, '0'); }

TEST(StatusDecoders, ReadTheirFieldsAndNothingElse) {
  const std::string level = "99ec" + zeros(44) + "64000000";
  EXPECT_EQ(KWTCmdResponse::getPower(level), 100U);
  EXPECT_EQ(KWTCmdResponse::getPower(level.substr(0, 55)), 0U);
  EXPECT_EQ(KWTCmdResponse::getPower(std::nullopt), 0U);

  const std::string head = "8f42455354", crc = "aabbccdd";
  const std::pair<std::string, const char*> versions[]{{head + "00010203" + crc, "1.2.3"},
                                                       {head + "01000a" + crc, "1.0.10"},
                                                       {head + "00000205" + crc, "2.5"},
                                                       {head + "01zz02" + crc, "1.0.2"},
                                                       {head + "0000" + crc, ""},
                                                       {head + crc, ""},
                                                       {head + "00aabb", ""},
                                                       {"", ""}};
  for (const auto& [reply, version] : versions)
    EXPECT_EQ(KWTCmdResponse::getVersion(reply), version) << reply;

  EXPECT_EQ(KWTCmdResponse::getMTU("8142455354f400"), 244);
  EXPECT_EQ(KWTCmdResponse::getMTU("0002"), 512);
  EXPECT_EQ(KWTCmdResponse::getMTU("002"), 0);
  EXPECT_EQ(KWTCmdResponse::getMTU(std::nullopt), 0);

  const std::string status = "99ec3a00b2" + zeros(38);
  const std::pair<std::string, std::optional<ByteCounts>> capacities[]{
      {status + "40002000" + zeros(8), ByteCounts{2097152, 1048576}},
      {status + "ffffffff" + zeros(8), ByteCounts{2147450880, 2147450880}},
      {status + "40002000" + zeros(10), std::nullopt},
      {"99EC3A00B2" + zeros(54), std::nullopt},
      {zeros(64), std::nullopt},
      {"", std::nullopt}};
  for (const auto& [reply, counts] : capacities)
    EXPECT_EQ(KWTCmdResponse::getCapacityResult(reply), counts) << reply;
}

TEST(Status, OnlyTheCapacityPassesFailuresOn) {
  FakeHost host;
  Lines outcomes;
  const auto note = [&](const MaybeError& error, const std::string& value) {
    outcomes.push_back((error ? std::to_string(error->code()) + error->localizedDescription() : "ok") + " " +
                       value);
  };
  const auto ask = [&] {
    host.helper->getPower([&](const MaybeError& e, std::uint64_t v) { note(e, std::to_string(v)); });
    host.helper->getFirmwareVersion([&](const MaybeError& e, const auto& v) { note(e, v.value_or("none")); });
    host.helper->getCapacity([&](const MaybeError& e, const auto& v) { note(e, v ? "some" : "none"); });
  };
  host.peripheral->current = PeripheralState::disconnected;
  ask();
  EXPECT_EQ(outcomes, (Lines{"ok 0", "ok ", "1001蓝牙断开连接 none"}));
  outcomes.clear();
  host.peripheral->calls.clear();
  host.helper->setCompletionBlock([](const MaybeError&, const auto&) {});
  ask();
  const std::string busy = "1002已有操作在进行中 ";
  EXPECT_EQ(outcomes, (Lines{busy + "0", busy + "none", busy + "none"}));
  EXPECT_TRUE(host.peripheral->calls.empty());
}

}  // namespace
}  // namespace kwtsdk
