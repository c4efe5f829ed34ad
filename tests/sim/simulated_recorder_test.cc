#include <gtest/gtest.h>
#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/seeded_faults.h>
#include <kwtsdk/sim/simulated_recorder.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include <algorithm>

#include "codec/hex.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::sim {
namespace {

using namespace std::chrono_literals;
using namespace testing;

TEST(DeviceScript, ReadsTimingFaultsAndTheRecordersPart) {
  const auto script = parseDeviceScript(
      "# a slow link\n latency 5ms\ninterval 7.5ms # as phones ask for\npackets 3\r\nmtu 185\n\n"
      "notification 2 delay 250us\nnotification 3 corrupt 12\nwrite 1 refuse\nnotification 2 drop\n"
      "key 3s\ncall\ncall 1500ms\nupdate refuse check\nupdate silent check 7\nupdate silent begin\nupdate "
      "mtu 0");
  EXPECT_TRUE(script.timing.latency == 5ms && script.timing.connectionInterval == 7500us);
  EXPECT_TRUE(script.timing.packetsPerInterval == 3 && script.timing.mtu == 185 && script.updateMtu == 0);
  EXPECT_TRUE(script.keyAfter == 3s && script.callAfter == 1500ms && script.inCall);
  using enum UpdateStep;
  EXPECT_EQ(script.updateTroubles, (std::vector<UpdateTrouble>{{check}, {check, true, 7}, {begin, true}}));
  EXPECT_FALSE(parseDeviceScript("call 2s").inCall);
  const auto next = [&script](LinkEvent event) { return script.faults->next(event).fault; };
  EXPECT_TRUE(next(LinkEvent::notification) == Fault::none && next(LinkEvent::write) == Fault::refuse);
  EXPECT_EQ(next(LinkEvent::notification), Fault::drop) << "the later line for the same event counts";
  const FaultAction third = script.faults->next(LinkEvent::notification);
  EXPECT_TRUE(third.fault == Fault::corrupt && third.position == 12 && next(LinkEvent::write) == Fault::none);
}

TEST(DeviceScript, NamesTheLineItCannotRead) {
  const std::pair<const char*, const char*> cases[]{
      {"notifcation 1 drop", "\"notifcation\" is unknown"},
      {"notification 0 drop", "\"0\" is not a whole number"},
      {"notification 1 delay 5", "\"5\" is not a duration"},
      {"notification 1 refuse", "refuse does not apply to a notification"},
      {"latency -1ms", "\"-1ms\" is not a duration"},
      {"interval 3601s", "\"3601s\" is not a duration"},
      {"key", "write it as \"key DURATION\""},
      {"call me later", "write it as \"call [DURATION]\""},
      {"update refuse", "write it as \"update refuse|silent STEP or update mtu NUMBER\""},
      {"update refuse done", "\"done\" is no step; use prepare"},
      {"update refuse begin", "begin has no refusal"},
      {"update silent bye 2", "write it as \"update silent bye\""},
      {"update refuse check 0", "\"0\" is not a whole number"},
      {"update mtu 65536", "\"65536\" is not a whole number"},
      {"update delay bye", "write it as \"update refuse|silent"},
      {"mtu 22", "\"22\" is not a whole number from 23 to 517"},
  };
  for (const auto& [line, reason] : cases) {
    const std::string text = std::string("mtu 100\n# comment\n") + line;
    const std::string failure = thrownBy([&] { parseDeviceScript(text); });
    EXPECT_NE(failure.find("line 3, \"" + std::string(line) + "\": "), std::string::npos) << failure;
    EXPECT_NE(failure.find(reason), std::string::npos) << failure;
  }
}

TEST(SeededFaults, FollowSeedAndRates) {
  using Action = std::pair<Fault, std::pair<Duration, std::size_t>>;
  const auto faults = [](std::uint64_t seed) {
    SeededFaults plan(seed, {.drop = 0.1, .delay = 0.1, .corrupt = 0.1, .refuse = 0.1, .longestDelay = 3ms});
    std::vector<Action> actions;
    while (actions.size() < 10000) {
      const FaultAction next = plan.next(LinkEvent::write);
      EXPECT_LE(next.delay, 3ms);
      actions.push_back({next.fault, {next.delay, next.position}});
    }
    return actions;
  };
  const auto first = faults(1), other = faults(2);
  EXPECT_TRUE(first == faults(1) && first != other);
  EXPECT_FALSE(std::equal(first.begin() + 1, first.end(), other.begin())) << "a seed is no shift of another";
  for (const Fault fault : {Fault::drop, Fault::delay, Fault::corrupt, Fault::refuse}) {
    EXPECT_NEAR(static_cast<double>(std::ranges::count(first, fault, &Action::first)), 1000, 150);
  }
}

TEST(SimulatedRecorder, TakesItsIdsItsLinkAndItsRecordingsEndsFromTheFolder) {
  const TemporaryFolder folder;
  writeFile(folder.file("1.opus"), "OggS" + std::string(22, '\0') + "\1xOpusHead");
  std::filesystem::create_directory(folder.file("device"));
  writeFile(folder.file("device/first-id"), "5");
  writeFile(folder.file("device/script"), "latency 1ms\ninterval 10ms\ncall\nkey 20ms\n");

  const auto scheduler = VirtualTimeScheduler::create(1);
  const auto facade = KWTBluetoothHelper::create({scheduler, nullptr, nullptr, nullptr});
  const auto recorder = openSimulatedRecorder(scheduler, folder.path());
  recorder.link->attach(facade);
  scheduler->run([&] {
    EXPECT_EQ(facade->getFileNumAndFirstId(), (FlashInfo{1, 5}));
    EXPECT_EQ(scheduler->now() % 10ms, 1ms);
  });
  for (const std::uint8_t code : Bytes{1, 3}) recorder.model->write(Channel::recorder, {code, 0x81, 1, 0, 0});
  recorder.model->recordPacket();
  std::string packets;
  while (const auto packet = recorder.model->nextPacket())
    packets += internal::hexString(packet->value) + " ";
  EXPECT_EQ(packets, "1280040000105400 1280040000025400 50010300b8fffe 0801001100 ");
}

}  // namespace
}  // namespace kwtsdk::sim
