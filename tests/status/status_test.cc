#include <gtest/gtest.h>

#include "tests/support/fake_peripheral.h"

namespace kwtsdk {
namespace {

using testing::FakeHost;
using Lines = std::vector<std::string>;

std::string zeros(std::size_t count) { return std::string(count, '0'); }

TEST(StatusDecoders, ReadTheirFieldsAndNothingElse) {
  const std::string level = "99ec" + zeros(44) + "64000000";
  EXPECT_EQ(KWTCmdResponse::getPower(level), 100U);
  EXPECT_EQ(KWTCmdResponse::getPower(level.substr(0, 55)), 0U);
  EXPECT_EQ(KWTCmdResponse::getPower(std::nullopt), 0U);

  const std::vector<std::pair<std::string, std::string>> versions{
      {"8f42455354"
       "00010203"
       "aabbccdd",
       "1.2.3"},
      {"8f42455354"
       "01000a"
       "aabbccdd",
       "1.0.10"},
      {"8f42455354"
       "00000205"
       "aabbccdd",
       "2.5"},
      {"8f42455354"
       "0000"
       "aabbccdd",
       ""},
      {"8f42455354"
       "aabbccdd",
       ""},
      {"8f4245535400aabb", ""},
      {"", ""},
  };
  for (const auto& [reply, version] : versions)
    EXPECT_EQ(KWTCmdResponse::getVersion(reply), version) << reply;

  EXPECT_EQ(KWTCmdResponse::getMTU("8142455354f400"), 244);
  EXPECT_EQ(KWTCmdResponse::getMTU("0002"), 512);
  EXPECT_EQ(KWTCmdResponse::getMTU("002"), 0);
  EXPECT_EQ(KWTCmdResponse::getMTU(std::nullopt), 0);

  const std::string head = "99ec3a00b2" + zeros(38);
  EXPECT_EQ(KWTCmdResponse::getCapacityResult(head + "40002000" + zeros(8)), (ByteCounts{2097152, 1048576}));
  EXPECT_EQ(KWTCmdResponse::getCapacityResult(head + "ffffffff" + zeros(8)),
            (ByteCounts{2147450880, 2147450880}));
  for (const std::string& bad :
       {head + "40002000" + zeros(10), "99EC3A00B2" + zeros(54), zeros(64), std::string()}) {
    EXPECT_EQ(KWTCmdResponse::getCapacityResult(bad), std::nullopt) << bad;
  }
}

TEST(Status, FramesAndTheirReplies) {
  FakeHost host;
  Lines outcomes;
  host.helper->getPower(
      [&](const MaybeError& e, std::uint64_t v) { outcomes.push_back(std::to_string(v) + (e ? "!" : "")); });
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec" + zeros(44) + "57000000" + zeros(8));
  host.helper->getCapacity([&](const MaybeError& e, const auto& v) {
    outcomes.push_back(std::to_string((*v)[1]) + (e ? "!" : ""));
  });
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec3a00b2" + zeros(38) + "40000100" + zeros(8));
  host.helper->getFirmwareVersion(
      [&](const MaybeError& e, const auto& v) { outcomes.push_back(*v + (e ? "!" : "")); });
  host.acknowledge(host.firmware);
  host.notify(host.firmware,
              "8f42455354"
              "010203"
              "aabbccdd");
  EXPECT_EQ(outcomes, (Lines{"87", "32768", "1.2.3"}));
  EXPECT_EQ(host.peripheral->calls,
            (Lines{"on C92A", "write 99ec2a02b20a0001000000000000001003a34083df", "off C92A", "on C92A",
                   "write 99ec2a02b20a000100000000000000107fb47d3086", "off C92A", "on 7777",
                   "write 8e42455354", "off 7777"}));
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
    host.helper->getFirmwareVersion(
        [&](const MaybeError& e, const auto& v) { note(e, v ? *v + "." : "none"); });
    host.helper->getCapacity([&](const MaybeError& e, const auto& v) { note(e, v ? "some" : "none"); });
  };
  host.peripheral->current = PeripheralState::disconnected;
  ask();
  EXPECT_EQ(outcomes, (Lines{"ok 0", "ok .", "1001蓝牙断开连接 none"}));
  outcomes.clear();
  host.peripheral->calls.clear();
  host.helper->setCompletionBlock([](const MaybeError&, const auto&) {});
  ask();
  EXPECT_EQ(outcomes,
            (Lines{"1002已有操作在进行中 0", "1002已有操作在进行中 none", "1002已有操作在进行中 none"}));
  EXPECT_TRUE(host.peripheral->calls.empty());
}

}  // namespace
}  // namespace kwtsdk
