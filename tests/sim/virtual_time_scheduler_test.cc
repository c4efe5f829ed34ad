#include <gtest/gtest.h>

#include <mutex>
#include <set>

#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace kwtsdk::sim {
namespace {

using namespace std::chrono_literals;

constexpr std::uint64_t seedCount = 200;

/// Runs one scenario twice under each of many seeds, with the same outcome; gives the outcomes that were
/// seen.
template <typename Scenario>
auto outcomesOf(Scenario scenario) {
  std::set<decltype(scenario(*VirtualTimeScheduler::create(0)))> outcomes;
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed - first < seedCount; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    const auto outcome = scenario(*VirtualTimeScheduler::create(seed));
    EXPECT_EQ(scenario(*VirtualTimeScheduler::create(seed)), outcome);
    outcomes.insert(outcome);
  }
  return outcomes;
}

/// For work or a callback to hold: marks that it was destroyed, at a preemption point.
std::shared_ptr<void> tracker(VirtualTimeScheduler& v, std::string& trace, char mark) {
  return {nullptr, [&v, &trace, mark](void*) { v.preemptionPoint(), trace += mark; }};
}

TEST(VirtualTimeScheduler, SeedDecidesTheInterleaving) {
  const auto traces = outcomesOf([](VirtualTimeScheduler& v) {
    std::string trace;
    const auto queue = v.serialQueue("q");
    const auto loop = [&](char mark) {
      for (int i = 0; i < 8; ++i) trace += mark, v.preemptionPoint();
    };
    v.run([&] {
      v.spawn("b", [&] { loop('b'); });
      queue->async([&] { loop('q'); });
      loop('a');
    });
    EXPECT_EQ(trace.size(), 24U);
    return trace;
  });
  EXPECT_GT(traces.size(), seedCount / 3);
}

TEST(VirtualTimeScheduler, SignalAndTimeOutAtOneInstantHappenInEitherOrder) {
  const auto outcomes = outcomesOf([](VirtualTimeScheduler& v) {
    const auto semaphore = v.semaphore("s");
    bool got = false;
    v.run([&] {
      v.spawn("signaller", [&] { v.sleep(5s), semaphore->signal(); });
      got = semaphore->wait(5s);
      EXPECT_EQ(v.now(), 5s);
    });
    return got;
  });
  EXPECT_EQ(outcomes.size(), 2U);
}

TEST(VirtualTimeScheduler, TimerKeepsItsPaceUntilCancelledOrDestroyed) {
  // The fire that cancels, destroys or lasts, the first being 1, and when the timer fires.
  const std::tuple<std::size_t, std::size_t, std::size_t, std::vector<Duration>> cases[]{
      {0, 0, 0, {2s, 5s, 8s, 11s}}, {2, 0, 0, {2s, 5s}}, {0, 1, 0, {2s}}, {0, 0, 1, {2s, 9s, 11s}}};
  for (const auto& test : cases) {
    outcomesOf([&](VirtualTimeScheduler& v) {
      std::vector<Duration> fires;
      std::string trace;
      std::shared_ptr<Timer> timer;
      v.run([&] {
        const auto held = tracker(v, trace, 'd');
        timer = v.repeatingTimer(2s, 3s, 0s, [&, held] {
          fires.push_back(v.now());
          if (fires.size() == std::get<0>(test)) timer->cancel();
          if (fires.size() == std::get<1>(test)) timer.reset();
          if (fires.size() == std::get<2>(test)) v.sleep(7s);
        });
        v.sleep(11500ms);
        if (timer) timer->cancel();
      });
      EXPECT_EQ(fires, std::get<3>(test));
      EXPECT_EQ(trace, "d") << "the callback is released although the timer object is still there";
      return 0;
    });
  }
}

TEST(VirtualTimeScheduler, TimersLatenessDoesNotAddUp) {
  outcomesOf([](VirtualTimeScheduler& v) {
    int fires = 0;
    v.run([&] {
      const auto timer = v.repeatingTimer(2s, 3s, 2s, [&] {
        const Duration late = v.now() - (2s + 3s * fires++);
        EXPECT_TRUE(late >= 0s && late <= 2s) << fires;
      });
      v.sleep(60s);
      timer->cancel();
    });
    return fires;
  });
}

TEST(VirtualTimeScheduler, DestroyedQueueDropsWhatHasNotBegun) {
  for (const bool byOwnWork : {true, false}) {
    const auto outcomes = outcomesOf([&](VirtualTimeScheduler& v) {
      std::string trace;
      auto queue = v.serialQueue("q");
      v.run([&] {
        const auto submitted = v.semaphore("submitted");
        queue->async([&, submitted] {
          submitted->wait({});
          if (byOwnWork) queue.reset();
          v.sleep(1s);
          trace += 'w';
        });
        queue->async([&trace, dropped = tracker(v, trace, 'd')] { trace += 'x'; });
        submitted->signal();
        v.sleep(byOwnWork ? 2s : 500ms);
        if (!byOwnWork) queue.reset();
        trace += 'e';
      });
      return trace;
    });
    // The second work was dropped, the first went on to its end, and the destroying thread waited for that.
    EXPECT_EQ(outcomes, std::set<std::string>{"dwe"}) << byOwnWork;
  }
}

TEST(VirtualTimeScheduler, ReportsWhatCannotGoOnAndLetsTheHandlerHelp) {
  using Body = std::function<void(VirtualTimeScheduler&, Semaphore&)>;
  const std::pair<Body, std::vector<std::string>> cases[]{
      {[](auto& v, auto& reply) {
         const auto lock = v.recursiveLock("dispatcher");
         v.spawn("host", [&v, lock] {
           v.sleep(2s);
           const std::lock_guard wants(*lock);
         });
         const std::lock_guard holds(*lock), again(*lock);
         v.sleep(1s);
         EXPECT_TRUE(reply.wait({}));
       },
       {"deadlock", "#1 main: waits for semaphore 'reply' since 1 s\n",
        "host: waits for lock 'dispatcher' since 2 s, held by #1 main\n", "virtual time 2 s",
        "repeat with KWTSDK_SEED=1\n"}},
      {[](auto& v, auto& reply) {
         v.setStepLimit(30);  // the clock moves, so it does not count
         const auto timer = v.repeatingTimer(1min, 1min, 0s, [] {});
         EXPECT_TRUE(reply.wait({}));
       },
       {"limit of virtual time", "timer: armed since 3600 s, until 3660 s\n", "main: waits"}},
  };
  for (const auto& test : cases) {
    const auto scheduler = VirtualTimeScheduler::create(1);
    const auto reply = scheduler->semaphore("reply");
    std::vector<std::string> reports;
    scheduler->setDeadlockHandler([&](const std::string& report) {
      reports.push_back(report);
      reply->signal();
    });
    scheduler->run([&] { test.first(*scheduler, *reply); });
    ASSERT_EQ(reports.size(), 1U) << test.second[0];
    for (const std::string& part : test.second) {
      EXPECT_NE(reports[0].find(part), std::string::npos) << part << "\nnot in\n" << reports[0];
    }
  }
}

}  // namespace
}  // namespace kwtsdk::sim
