#include <gtest/gtest.h>
#include <kwtsdk/sim/seeded_faults.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include <algorithm>

namespace kwtsdk::sim {
namespace {

using namespace std::chrono_literals;

template <class Parse>
std::string failureOf(Parse parse) {
  try {
    parse();
  } catch (const std::runtime_error& error) {
    return error.what();
  }
  return "accepted";
}

TEST(LinkScript, ReadsTimingAndFaults) {
  const auto script = parseLinkScript(
      "# a slow link\n latency 5ms\ninterval 7.5ms # as phones ask for\npackets 3\r\nmtu 185\n\n"
      "notification 2 delay 250us\nnotification 3 corrupt 12\nwrite 1 refuse\nnotification 2 drop");
  EXPECT_EQ(script.timing.latency, 5ms);
  EXPECT_EQ(script.timing.connectionInterval, 7500us);
  EXPECT_EQ(script.timing.packetsPerInterval, 3U);
  EXPECT_EQ(script.timing.mtu, 185U);
  const auto next = [&script](LinkEvent event) { return script.faults->next(event); };
  EXPECT_EQ(next(LinkEvent::notification).fault, Fault::none);
  EXPECT_EQ(next(LinkEvent::write).fault, Fault::refuse);
  EXPECT_EQ(next(LinkEvent::notification).fault, Fault::drop) << "the later line for the same event counts";
  const FaultAction third = next(LinkEvent::notification);
  EXPECT_EQ(third.fault, Fault::corrupt);
  EXPECT_EQ(third.position, 12U);
  EXPECT_EQ(next(LinkEvent::write).fault, Fault::none);
}

TEST(LinkScript, NamesTheLineItCannotRead) {
  const std::pair<const char*, const char*> cases[]{
      {"notifcation 1 drop", "\"notifcation\" is unknown"},
      {"notification 0 drop", "\"0\" is not a whole number"},
      {"notification 1x drop", "\"1x\" is not a whole number"},
      {"notification 1", "write it as \"notification NUMBER"},
      {"notification 1 lose", "\"lose\" is no fault"},
      {"notification 1 drop now", "write it as \"notification NUMBER drop\""},
      {"notification 1 delay", "write it as \"notification NUMBER delay DURATION\""},
      {"notification 1 delay 5", "\"5\" is not a duration"},
      {"notification 1 refuse", "refuse does not apply to a notification"},
      {"subscription 1 corrupt", "corrupt does not apply to a subscription"},
      {"latency", "write it as \"latency DURATION\""},
      {"latency -1ms", "\"-1ms\" is not a duration"},
      {"latency nanms", "\"nanms\" is not a duration"},
      {"interval 2h", "\"2h\" is not a duration"},
      {"interval 3601s", "\"3601s\" is not a duration"},
      {"packets 0", "\"0\" is not a whole number"},
      {"mtu 22", "\"22\" is not a whole number from 23 to 517"},
  };
  for (const auto& [line, reason] : cases) {
    const auto failure =
        failureOf([line = line] { parseLinkScript(std::string("mtu 100\n# comment\n") + line); });
    EXPECT_NE(failure.find("line 3, \"" + std::string(line) + "\": "), std::string::npos) << failure;
    EXPECT_NE(failure.find(reason), std::string::npos) << failure;
  }
  EXPECT_NE(failureOf([] { ScriptedFaults::fromText("latency 5ms"); }).find("is no event"),
            std::string::npos);
}

TEST(SeededFaults, FollowSeedAndRates) {
  const FaultRates rates{.drop = 0.1, .delay = 0.1, .corrupt = 0.1, .refuse = 0.1, .longestDelay = 3ms};
  const auto faults = [&rates](std::uint64_t seed, LinkEvent event) {
    SeededFaults plan(seed, rates);
    std::vector<FaultAction> actions(10000);
    for (auto& action : actions) action = plan.next(event);
    return actions;
  };
  const auto same = [](const FaultAction& a, const FaultAction& b) {
    return a.fault == b.fault && a.delay == b.delay && a.position == b.position;
  };
  const auto first = faults(1, LinkEvent::write), again = faults(1, LinkEvent::write);
  const auto other = faults(2, LinkEvent::write), subscriptions = faults(1, LinkEvent::subscription);
  EXPECT_TRUE(std::equal(first.begin(), first.end(), again.begin(), same));
  EXPECT_FALSE(std::equal(first.begin(), first.end(), other.begin(), same));
  EXPECT_FALSE(std::equal(first.begin() + 1, first.end(), other.begin(), same))
      << "a seed is no shift of another";

  const auto count = [](const std::vector<FaultAction>& actions, Fault fault) {
    return std::ranges::count(actions, fault, &FaultAction::fault);
  };
  for (const Fault fault : {Fault::drop, Fault::delay, Fault::corrupt, Fault::refuse}) {
    EXPECT_NEAR(static_cast<double>(count(first, fault)), 1000, 150);
  }
  EXPECT_EQ(count(first, Fault::duplicate), 0);
  EXPECT_EQ(count(subscriptions, Fault::corrupt), 0);
  EXPECT_TRUE(std::ranges::all_of(first, [](const auto& action) { return action.delay <= 3ms; }));
}

}  // namespace
}  // namespace kwtsdk::sim
