// One fault at every single event of every operation: each ends well, or with a code that says what happened.

#include <cstdlib>

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

constexpr std::array kEvents{LinkEvent::write, LinkEvent::acknowledgement, LinkEvent::notification,
                             LinkEvent::subscription};

/// How often each kind of event happens when nothing goes wrong.
std::array<std::uint64_t, 4> countsOf(const NamedOperation& operation) {
  std::array<std::uint64_t, 4> counts{};
  play<SessionScene>([&](SessionScene& scene) {
    EXPECT_EQ(operation.run(scene, {}), kOk) << operation.name;
    counts = scene.faults.seen;
  });
  return counts;
}

/// Runs each operation with one fault at each event, and gives what it ended with to `judge`.
template <class Judge>
void atEachEvent(const sim::FaultAction& action, std::uint64_t sparing, const Limits& limits,
                 const Judge& judge) {
  // Sanitizers set the number of seeds, since everything takes so much longer with them.
  const bool isSlow = std::getenv("KWTSDK_SEEDS") != nullptr;
  const std::uint64_t edge = isSlow ? 3 : 20, step = isSlow ? 16 * sparing : sparing;
  for (const NamedOperation& operation : everyOperation()) {
    const auto counts = countsOf(operation);
    for (const LinkEvent event : kEvents) {
      if (!sim::faultApplies(action.fault, event)) continue;
      const std::uint64_t count = counts.at(static_cast<std::size_t>(event));
      // The packets in the middle of a transfer are alike.
      for (std::uint64_t number = 1; number <= count;
           number += number > edge && number + edge < count ? step : 1) {
        play<SessionScene>(
            [&](SessionScene& scene) {
              SCOPED_TRACE(operation.name + (" event " + std::to_string(static_cast<int>(event))) +
                           " number " + std::to_string(number));
              scene.damaged = action.fault != Fault::disconnect && action.fault != Fault::delay;
              scene.faults.add(event, number, action);
              judge(scene, operation, [&] { return operation.run(scene, limits); });
            },
            number);
      }
    }
  }
}

/// What cannot be continued, or must not be repeated before somebody has looked.
bool mayEnd(const NamedOperation& operation) {
  return operation.name == std::string("record") || operation.name == std::string("remove") ||
         operation.name == std::string("update");
}

TEST(SessionSingleFault, ALostLinkIsMadeAgainAndTheOperationGoesOn) {
  atEachEvent({Fault::disconnect, {}}, 5, {},
              [](SessionScene&, const NamedOperation& operation, const auto& run) {
                const auto code = run();
                EXPECT_TRUE(code == kOk || (mayEnd(operation) && code == Errc::linkLost)) << code.message();
              });
}

TEST(SessionSingleFault, AnyOtherIsHealedOrEndsInTime) {
  const Limits limited = Limits().timeout(60s).reconnects(2);
  const std::pair<sim::FaultAction, Limits> table[]{
      {{Fault::drop, {}}, {}},        {{Fault::duplicate, {}}, {}},  {{Fault::corrupt, {}, 0}, {}},
      {{Fault::corrupt, {}, 3}, {}},  {{Fault::corrupt, {}, 5}, {}}, {{Fault::corrupt, {}, 20}, {}},
      {{Fault::refuse, {}}, limited}, {{Fault::delay, 12s}, limited}};
  for (const auto& test : table) {
    // What is damaged cannot always be told: not all has a sum.
    const bool isHealed = test.first.fault == Fault::drop || test.first.fault == Fault::duplicate;
    atEachEvent(test.first, 37, test.second,
                [&](SessionScene& scene, const NamedOperation& operation, const auto& run) {
                  const Duration begin = scene.now();
                  const auto code = run();
                  EXPECT_TRUE(code == kOk || !isHealed || mayEnd(operation)) << code.message();
                  EXPECT_LE(scene.now() - begin, test.second.timeout() ? 66s : 300s);
                });
  }
}

}  // namespace
}  // namespace kwtsdk::testing
