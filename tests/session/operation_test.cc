// What holds for every operation, whatever it does: its end, its callbacks, and the Session's own;
// and one fault at every single event of each: it ends well, or with a code that says what happened.

#include <gtest/gtest.h>

#include <cstdlib>

#include <kwtsdk/session/task.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

TEST(SessionOperation, CancelledWhileTheLinkIsBeingMadeItEndsAtOnce) {
  for (const NamedOperation& operation : everyOperation()) {
    const std::pair<bool, bool> table[]{{false, false}, {false, true}, {true, false}, {true, true}};
    playEach<SessionScene>(table, [&](SessionScene& scene, bool byTime, bool isMade) {
      const auto ended = scene.scheduler.semaphore("open() is to end");
      scene.simLink->disconnect();
      scene.link->onOpen = [ended, isMade]() -> MaybeError {
        ended->wait(std::nullopt);
        if (isMade) return std::nullopt;  // it was just there
        return Error("host.bluetooth", 2, {});
      };
      scene.link->onClose = [ended] { ended->signal(); };
      std::stop_source stop;
      scene.scheduler.spawn("cancel", [&] {
        scene.scheduler.sleep(1s);
        if (!byTime) stop.request_stop();
      });
      const Limits limits = byTime ? Limits().timeout(1s) : Limits(stop.get_token());
      EXPECT_EQ(operation.run(scene, limits), byTime ? Errc::timedOut : Errc::cancelled) << operation.name;
      EXPECT_LE(scene.now(), 1100ms);
      scene.link->onOpen = nullptr;
      EXPECT_TRUE(scene.session->record(scene.file("b"), RecordOptions().length(100ms)).wait());
      EXPECT_TRUE(scene.session->battery().wait());
      scene.scheduler.sleep(1s);
    });
  }
}

TEST(SessionOperation, AQueuedOneEndsByItsOwnTimeAndLeavesTheQueueInOrder) {
  play<SlowScene>([](SlowScene& scene) {
    std::stop_source requested;
    requested.request_stop();
    EXPECT_EQ(codeOf(scene.session->battery(requested.get_token()).wait()), Errc::cancelled);
    EXPECT_TRUE(scene.frames.empty());
    scene.store->put(storedRecording(3));
    Lines order;
    const auto noted = [&](const char* name, const auto& operation) {
      operation.then([&order, name](const auto& result) {
        order.push_back(name + std::string(result ? "" : " failed"));
      });
      return operation;
    };
    const auto download = noted("download", scene.session->download(scene.file("a")));
    const auto first = noted("first", scene.session->recordings());
    const auto late = noted("late", scene.session->recordings(Limits().timeout(100ms)));
    auto given = noted("given up", scene.session->recordings()),
         last = noted("last", scene.session->recordings());
    for (int i = 0; i < 2; ++i) given.cancel();
    EXPECT_EQ(codeOf(given.wait()), Errc::cancelled);
    EXPECT_EQ(scene.now(), 0s);
    EXPECT_EQ(codeOf(late.wait()), Errc::timedOut);
    EXPECT_LE(scene.now(), 200ms);
    EXPECT_FALSE(last.waitFor(10ms));
    last.wait().value();
    last.cancel();
    EXPECT_TRUE(last.wait());
    scene.session = nullptr;
    EXPECT_EQ(order, (Lines{"given up failed", "late failed", "download", "first", "last"}));
  });
}

// ---- Callbacks ----

TEST(SessionCallbacks, AnExecutorThatNeverRunsThemIsWaitedForOnce) {
  play<SessionScene>([](SessionScene& scene) {
    std::vector<std::function<void()>> kept;
    scene.session =
        scene.open(Options().executor([&](std::function<void()> work) { kept.push_back(std::move(work)); }));
    int called = 0;
    for (int i = 0; i < 20; ++i) scene.session->battery().then([&](const auto&) { ++called; });
    scene.scheduler.sleep(1s);
    scene.session = nullptr;
    EXPECT_LT(scene.now(), 7s);
    EXPECT_EQ(called, 20);
  });
}

// ---- Real threads ----

session::Task<std::uint64_t> levels(Session& recorder) {
  const auto first = recorder.battery(), second = recorder.battery();
  const auto one = co_await first;
  const auto other = co_await second;
  const auto direct = co_await recorder.battery(Limits().timeout(std::chrono::seconds(20)));
  co_return one.value() + other.value() + direct.value();
}

TEST(SessionOnRealThreads, FuturesCoroutinesAndWaitsGiveTheSame) {
  const TemporaryFolder folder;
  const auto scheduler = threadScheduler();
  const auto store = std::make_shared<sim::MemoryStore>();
  store->add(storedRecording(2));
  const auto link = sim::SimulatedLink::create(scheduler, std::make_shared<sim::RecorderModel>(store));
  const auto session = Session::create(
      session::linkOver(link), Options().platform({nullptr, nullptr, nullptr, std::make_shared<LineLog>()}));
  const auto download = session->download(folder.file("a"));
  auto future = session->battery().future();
  EXPECT_EQ(levels(*session).run(*scheduler), 240U);
  EXPECT_EQ(future.get().value(), 80U);
  EXPECT_TRUE(download.wait());
  EXPECT_TRUE(contentOf(folder.file("a")) == text(storedRecording(2)));
  std::stop_source stop;
  const auto recording = session->record(folder.file("b"), {}, stop.get_token());
  EXPECT_TRUE(session->battery().wait());
  stop.request_stop();
  EXPECT_EQ(codeOf(recording.wait()), Errc::cancelled);
}

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
