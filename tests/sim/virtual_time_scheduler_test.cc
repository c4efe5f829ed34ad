#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

namespace kwtsdk::sim {
namespace {

using namespace std::chrono_literals;
using Times = std::vector<Duration>;

constexpr std::uint64_t seedCount = 200;

/// Runs one scenario under many seeds; gives the outcomes that were seen.
template <typename Scenario>
auto outcomesOf(Scenario scenario) {
  std::set<decltype(scenario(*VirtualTimeScheduler::create(0)))> outcomes;
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed - first < seedCount; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    outcomes.insert(scenario(*VirtualTimeScheduler::create(seed)));
  }
  return outcomes;
}

/// Destroyed with the work or callback that captured it: says so, at a preemption point.
class Tracker {
 public:
  Tracker(VirtualTimeScheduler& scheduler, std::string& trace, char mark)
      : scheduler_(scheduler), trace_(trace), mark_(mark) {}
  ~Tracker() {
    scheduler_.preemptionPoint();
    trace_ += mark_;
  }

 private:
  VirtualTimeScheduler& scheduler_;
  std::string& trace_;
  char mark_;
};

TEST(VirtualTimeScheduler, TimePassesOnlyInWaitsAndExactly) {
  struct Case {
    const char* name;
    std::function<void(Scheduler&, Semaphore&)> wait;
    Duration passes;
  };
  const Case cases[] = {
      {"time-out", [](Scheduler&, Semaphore& s) { EXPECT_FALSE(s.wait(5s)); }, 5s},
      {"odd time-out", [](Scheduler&, Semaphore& s) { EXPECT_FALSE(s.wait(7ns)); }, 7ns},
      {"no time", [](Scheduler&, Semaphore& s) { EXPECT_FALSE(s.wait(0s)); }, 0s},
      {"negative time", [](Scheduler&, Semaphore& s) { EXPECT_FALSE(s.wait(-1s)); }, 0s},
      {"signalled", [](Scheduler&, Semaphore& s) { EXPECT_TRUE((s.signal(), s.wait(5s))); }, 0s},
      {"longest time-out",
       [](Scheduler&, Semaphore& s) { EXPECT_TRUE((s.signal(), s.wait(Duration::max()))); }, 0s},
      {"sleep", [](Scheduler& v, Semaphore&) { v.sleep(59min); }, 59min},
      {"no sleep", [](Scheduler& v, Semaphore&) { v.sleep(0s); }, 0s},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const auto scheduler = VirtualTimeScheduler::create(seedFromEnvironment(1));
    scheduler->run([&] {
      const Duration start = scheduler->now();
      test.wait(*scheduler, *scheduler->semaphore("s"));
      EXPECT_EQ(scheduler->now() - start, test.passes);
    });
  }
}

std::string traceOfThreeThreads(VirtualTimeScheduler& scheduler) {
  std::string trace;
  const auto queue = scheduler.serialQueue("q");
  const auto loop = [&](char mark) {
    for (int i = 0; i < 8; ++i) {
      trace += mark;
      scheduler.preemptionPoint();
    }
  };
  scheduler.run([&] {
    scheduler.spawn("b", [&] { loop('b'); });
    queue->async([&] { loop('q'); });
    loop('a');
  });
  EXPECT_EQ(trace.size(), 24U);
  return trace;
}

TEST(VirtualTimeScheduler, SeedDecidesTheInterleaving) {
  const auto traces = outcomesOf([](VirtualTimeScheduler& v) {
    const std::string trace = traceOfThreeThreads(v);
    EXPECT_EQ(traceOfThreeThreads(*VirtualTimeScheduler::create(v.seed())), trace);
    return trace;
  });
  EXPECT_GT(traces.size(), seedCount / 3);
}

TEST(VirtualTimeScheduler, BothOutcomesAreSeenOfWhatHappensAtOneInstant) {
  using Both = std::set<std::string>;
  EXPECT_EQ(outcomesOf([](VirtualTimeScheduler& v) {
              const auto semaphore = v.semaphore("s");
              bool got = false;
              v.run([&] {
                v.spawn("signaller", [&] { v.sleep(5s), semaphore->signal(); });
                got = semaphore->wait(5s);
                EXPECT_EQ(v.now(), 5s);
              });
              return std::string(got ? "signalled" : "timed out");
            }),
            (Both{"signalled", "timed out"}));
  EXPECT_EQ(outcomesOf([](VirtualTimeScheduler& v) {
              std::string order;
              v.run([&] {
                v.spawn("b", [&] { v.sleep(1s), order += 'b'; });
                v.sleep(1s), order += 'a';
              });
              return order;
            }),
            (Both{"ab", "ba"}));
  EXPECT_EQ(outcomesOf([](VirtualTimeScheduler& v) {  // 1 s with a leeway of 1 s, against 1.5 s
              std::string order;
              v.run([&] {
                const auto timer = v.repeatingTimer(1s, 1h, 1s, [&] { order += 't'; });
                v.sleep(1500ms), order += 'm', v.sleep(1s);
              });
              return order;
            }),
            (Both{"tm", "mt"}));
}

TEST(VirtualTimeScheduler, QueueKeepsOrderAndOneAtATime) {
  outcomesOf([](VirtualTimeScheduler& v) {
    std::vector<int> done;
    const auto queue = v.serialQueue("q");
    bool busy = false;
    const auto submit = [&](int first) {
      for (int i = first; i < first + 5; ++i) {
        queue->async([&, i] {
          EXPECT_FALSE(std::exchange(busy, true));
          v.sleep(1ms);
          done.push_back(i);
          busy = false;
        });
      }
    };
    submit(0);  // before the run
    v.run([&] { v.spawn("other", [&] { submit(20); }), submit(10); });
    v.run([&] { submit(30); });  // the queue goes on in another run
    std::vector<int> ofMain;
    std::ranges::copy_if(done, std::back_inserter(ofMain), [](int i) { return i / 10 != 2; });
    EXPECT_EQ(ofMain, (std::vector<int>{0, 1, 2, 3, 4, 10, 11, 12, 13, 14, 30, 31, 32, 33, 34}));
    EXPECT_EQ(done.size(), 20U);
    return 0;
  });
}

TEST(VirtualTimeScheduler, LockExcludesOthersAndLetsItsHolderIn) {
  const auto outcomes = outcomesOf([](VirtualTimeScheduler& v) {
    const auto lock = v.recursiveLock("l");
    int inside = 0;
    bool refused = false;
    const auto section = [&] {
      const std::lock_guard outer(*lock);
      const std::lock_guard inner(*lock);
      EXPECT_EQ(++inside, 1);
      v.sleep(1ms);
      --inside;
    };
    lock->lock(), lock->lock(), lock->unlock(), lock->unlock();  // outside a run
    v.run([&] {
      v.spawn("b", section);
      v.spawn("try", [&] {
        const std::unique_lock attempt(*lock, std::try_to_lock);
        refused = !attempt;
        EXPECT_TRUE(refused || inside == 0);
      });
      section();
    });
    return refused;
  });
  EXPECT_EQ(outcomes.size(), 2U);
}

TEST(VirtualTimeScheduler, TimerKeepsItsPaceUntilCancelledOrDestroyed) {
  struct Case {
    const char* name;
    std::function<void(Scheduler&, std::shared_ptr<Timer>&, std::size_t fires)> duringFire;
    Times expected;
  };
  const Case cases[] = {
      {"cancelled from outside", [](auto&, auto&, auto) {}, {2s, 5s, 8s}},
      {"cancels itself",
       [](auto&, auto& timer, auto fires) {
         if (fires == 2) timer->cancel();
       },
       {2s, 5s}},
      {"destroys itself", [](auto&, auto& timer, auto) { timer.reset(); }, {2s}},
      {"lasts over two fires",
       [](auto& v, auto&, auto fires) {
         if (fires == 1) v.sleep(7s);
       },
       {2s, 9s}},
  };
  for (const Case& test : cases) {
    outcomesOf([&](VirtualTimeScheduler& v) {
      SCOPED_TRACE(test.name);
      Times fires;
      std::string trace;
      std::shared_ptr<Timer> timer;
      v.run([&] {
        const auto tracker = std::make_shared<Tracker>(v, trace, 'd');
        timer = v.repeatingTimer(2s, 3s, 0s, [&, tracker] {
          fires.push_back(v.now());
          test.duringFire(v, timer, fires.size());
        });
        v.sleep(10s);
        if (timer) timer->cancel();
      });
      EXPECT_EQ(fires, test.expected);
      EXPECT_EQ(trace, "d") << "the callback is released although the timer object is still there";
      return 0;
    });
  }
}

TEST(VirtualTimeScheduler, DestroyedQueueDropsWhatHasNotBegun) {
  struct Case {
    const char* name;
    std::function<void(Scheduler&, std::shared_ptr<SerialQueue>&)> destroy;
    bool byOwnWork;
  };
  const Case cases[] = {
      {"by its own work", [](auto&, auto&) {}, true},
      {"by another thread", [](auto& v, auto& queue) { v.sleep(500ms), queue.reset(); }, false}};
  for (const Case& test : cases) {
    const auto outcomes = outcomesOf([&](VirtualTimeScheduler& v) {
      std::string trace;
      auto queue = v.serialQueue("q");
      v.run([&] {
        const auto submitted = v.semaphore("submitted");
        queue->async([&, submitted] {
          submitted->wait({});
          if (test.byOwnWork) queue.reset();
          v.sleep(1s);
          trace += 'w';
        });
        queue->async([&trace, dropped = std::make_shared<Tracker>(v, trace, 'd')] { trace += 'x'; });
        submitted->signal();
        test.destroy(v, queue);
        if (test.byOwnWork) v.sleep(2s);
        trace += 'e';
      });
      return trace;
    });
    // The second work was dropped, the first went on to its end, and the destroying thread waited for that.
    EXPECT_EQ(outcomes, std::set<std::string>{"dwe"}) << test.name;
  }
}

TEST(VirtualTimeScheduler, ReportsWhatCannotGoOnAndLetsTheHandlerHelp) {
  struct Case {
    const char* name;
    std::function<void(VirtualTimeScheduler&, Semaphore&)> body;
    std::vector<std::string> reported;
  };
  const Case cases[] = {
      {"deadlock",
       [](auto& v, auto& reply) {
         const auto lock = v.recursiveLock("dispatcher");
         v.spawn("host", [&v, lock] {
           v.sleep(2s);
           const std::lock_guard wants(*lock);
         });
         const auto queue = v.serialQueue("idler");
         queue->async([] {});
         const std::lock_guard holds(*lock);
         v.sleep(1s);
         EXPECT_TRUE(reply.wait({}));
       },
       {"deadlock", "#1 main: waits for semaphore 'reply' since 1 s\n", "idler: idle",
        "host: waits for lock 'dispatcher' since 2 s, held by #1 main\n", "virtual time 2 s",
        "repeat with KWTSDK_SEED=1\n"}},
      {"endless timer",
       [](auto& v, auto& reply) {
         v.setStepLimit(30);  // the clock moves, so it does not count
         const auto timer = v.repeatingTimer(1min, 1min, 0s, [] {});
         EXPECT_TRUE(reply.wait({}));
       },
       {"limit of virtual time", "timer: armed since 3600 s, until 3660 s\n", "main: waits"}},
      {"endless loop",
       [](auto& v, auto& reply) {
         v.setStepLimit(1000);
         while (!reply.wait(0s)) v.preemptionPoint();
       },
       {"the clock does not move", "main: running"}},
  };
  for (const Case& test : cases) {
    SCOPED_TRACE(test.name);
    const auto scheduler = VirtualTimeScheduler::create(1);
    const auto reply = scheduler->semaphore("reply");
    std::vector<std::string> reports;
    scheduler->setDeadlockHandler([&](const std::string& report) {
      reports.push_back(report);
      reply->signal();
    });
    scheduler->run([&] { test.body(*scheduler, *reply); });
    ASSERT_EQ(reports.size(), 1U);
    for (const std::string& part : test.reported) {
      EXPECT_NE(reports[0].find(part), std::string::npos) << part << "\nnot in\n" << reports[0];
    }
  }
}

TEST(VirtualTimeSchedulerDeathTest, AbortsWithAReasonOnMisuse) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto v = VirtualTimeScheduler::create(7);
  const auto semaphore = v->semaphore("reply");
  const auto lock = v->recursiveLock("l");
  EXPECT_DEATH(v->run([&] { semaphore->wait({}); }),
               "deadlock.*\n.*seed 7.*\n.*main: waits for semaphore 'reply'");
  EXPECT_DEATH(semaphore->wait(1s), "wait for semaphore 'reply' on a thread that is not simulated");
  EXPECT_DEATH(v->sleep(1s), "sleep on a thread that is not simulated");
  EXPECT_DEATH(lock->unlock(), "'l' is unlocked by a thread that does not hold it");
  EXPECT_DEATH(v->run([&] { v->run([] {}); }), "another run");
  EXPECT_DEATH((v->setDeadlockHandler([&](auto&) { v->sleep(1s); }), v->run([&] { semaphore->wait({}); })),
               "handler must not block");
}

TEST(VirtualTimeScheduler, ObjectsOutliveItAndDropWhatCanNeverRun) {
  std::string trace;
  auto scheduler = VirtualTimeScheduler::create(1);
  const auto helper = VirtualTimeScheduler::create(2);
  auto queue = scheduler->serialQueue("q");
  const auto semaphore = scheduler->semaphore("s");
  const auto lock = scheduler->recursiveLock("l");
  queue->async([queue, tracker = std::make_shared<Tracker>(*helper, trace, 'a')] {});
  const auto timer =
      scheduler->repeatingTimer(1s, 1s, 0s, [&, tracker = std::make_shared<Tracker>(*helper, trace, 'b')] {});
  scheduler.reset();
  EXPECT_EQ(trace, "ab");
  queue->async([&, tracker = std::make_shared<Tracker>(*helper, trace, 'c')] {});
  EXPECT_EQ(trace, "abc");
  semaphore->signal();
  const std::lock_guard guard(*lock);
  timer->cancel();
}

TEST(VirtualTimeScheduler, ExceptionOfTheBodyComesOutWhenAllHasEnded) {
  const auto scheduler = VirtualTimeScheduler::create(1);
  bool ended = false;
  EXPECT_THROW(scheduler->run([&] {
    scheduler->spawn("b", [&] { scheduler->sleep(1s), ended = true; });
    throw std::runtime_error("body");
  }),
               std::runtime_error);
  EXPECT_TRUE(ended);
}

TEST(SeedFromEnvironmentDeathTest, ReadsDecimalNumbersOnly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const char* before = std::getenv("KWTSDK_SEED");
  const std::optional<std::string> saved =
      before != nullptr ? std::optional<std::string>(before) : std::nullopt;
  unsetenv("KWTSDK_SEED");
  EXPECT_EQ(seedFromEnvironment(5), 5U);
  setenv("KWTSDK_SEED", "18446744073709551615", 1);
  EXPECT_EQ(seedFromEnvironment(5), 18446744073709551615U);
  for (const char* bad : {"", "x", "-1", "1 ", "18446744073709551616"}) {
    setenv("KWTSDK_SEED", bad, 1);
    EXPECT_EXIT(seedFromEnvironment(5), testing::ExitedWithCode(2), "set it to a decimal number");
  }
  saved ? setenv("KWTSDK_SEED", saved->c_str(), 1) : unsetenv("KWTSDK_SEED");
}

}  // namespace
}  // namespace kwtsdk::sim
