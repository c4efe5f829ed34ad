// What holds for every operation, whatever it does: its end, its callbacks, and the Session's own.

#include <gtest/gtest.h>

#include <kwtsdk/session/task.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

using session::Operation;

// ---- Cancelling ----

TEST(SessionOperation, CancelledWhenQueuedOrRunningOrDoneItEndsAtOnce) {
  for (const NamedOperation& operation : everyOperation()) {
    const bool leaves = operation.name == std::string("record");
    for (const Duration after : {0ms, 1ms, 20ms, 70ms, 200ms, 450ms}) {
      play<SlowScene>([&](SlowScene& scene) {
        std::stop_source stop;
        Duration asked{0};
        scene.scheduler.spawn("cancel", [&] {
          scene.scheduler.sleep(after);
          asked = scene.now();
          stop.request_stop();
        });
        const auto code = operation.run(scene, stop.get_token());
        SCOPED_TRACE(operation.name + (" after " + std::to_string(after.count() / 1'000'000)));
        EXPECT_TRUE(code == kOk || code == Errc::cancelled) << code.message();
        EXPECT_TRUE(code == kOk || scene.now() - asked <= (leaves ? 1s : 100ms));
        EXPECT_TRUE(scene.session->battery().wait()) << "the next is not concerned";
        scene.scheduler.sleep(after);  // until whoever cancels is gone
      });
    }
    play<SessionScene>([&](SessionScene& scene) {
      std::stop_source stop;
      stop.request_stop();
      EXPECT_EQ(operation.run(scene, stop.get_token()), Errc::cancelled)
          << operation.name << ", requested before";
      EXPECT_EQ(scene.frames, Lines());
    });
  }
}

TEST(SessionOperation, CancelledWhileTheLinkIsBeingMadeItEndsAtOnce) {
  for (const NamedOperation& operation : everyOperation()) {
    for (const auto& [byTime, isMade] :
         {std::pair(false, false), {false, true}, {true, false}, {true, true}}) {
      play<SessionScene>([&, byTime = byTime, isMade = isMade](SessionScene& scene) {
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
}

TEST(SessionOperation, AQueuedOneEndsByItsOwnTimeAndLeavesTheQueueInOrder) {
  play<SlowScene>([](SlowScene& scene) {
    scene.store->put(storedRecording(3));
    Lines order;
    const auto note = [&](const char* name) {
      return [&order, name](const auto& result) {
        order.push_back(name + std::string(result ? "" : " failed"));
      };
    };
    const auto download = scene.session->download(scene.file("a"));
    const auto first = scene.session->recordings(), late = scene.session->recordings(Limits().timeout(100ms)),
               given = scene.session->recordings(), last = scene.session->recordings();
    EXPECT_EQ(scene.session->snapshot().queued + (scene.session->snapshot().running.empty() ? 0 : 1), 5U);
    download.then(note("download"));
    first.then(note("first"));
    late.then(note("late"));
    given.then(note("given up"));
    last.then(note("last"));
    given.cancel();
    given.cancel();
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

TEST(SessionCallbacks, RunOnceWheneverTheyAreRegisteredAndNeverInsideTheCall) {
  for (std::uint64_t seed = 1; seed < 200; ++seed) {
    play<SessionScene>(
        [&](SessionScene& scene) {
          int calls = 0;
          static thread_local bool inside = false;
          const auto count = [&](const auto& level) {
            EXPECT_FALSE(inside);
            EXPECT_EQ(level.value_or(0), 80U);
            ++calls;
          };
          const auto level = scene.session->battery();
          for (int i = 0; i < 3; ++i) {
            inside = true;
            level.then(count);
            inside = false;
            if (i == 1) static_cast<void>(level.wait());
          }
          scene.session = nullptr;
          EXPECT_EQ(calls, 3);
        },
        seed);
  }
}

// Each may do anything: throw, ask and wait, close and destroy the session it belongs to.
TEST(SessionCallbacks, MayThrowWaitCloseAndDestroy) {
  for (const bool own : {false, true}) {
    for (std::uint64_t seed = 1; seed < 100; ++seed) {
      play<SessionScene>(
          [&](SessionScene& scene) {
            if (own) {
              scene.session = scene.open(
                  Options().executor([queue = scene.scheduler.serialQueue("host's own")](
                                         std::function<void()> work) { queue->async(std::move(work)); }));
            }
            const auto done = scene.scheduler.semaphore("done");
            const auto first = scene.session->battery(), second = scene.session->battery();
            first.then([](const auto&) { throw std::runtime_error("of the host's own"); });
            first.then([done, session = scene.session](const auto&) {
              EXPECT_TRUE(session->firmware().wait()) << "asked and awaited inside a callback";
              done->signal();
            });
            done->wait(std::nullopt);
            EXPECT_EQ(scene.log->count("of the host's own"), 1);
            second.then([done, seed, session = std::move(scene.session)](const auto&) mutable {
              const auto left = session->status();
              if (seed % 2 == 0) session->close();
              session = nullptr;  // the last one
              EXPECT_EQ(codeOf(left.wait()), Errc::closed);
              done->signal();
            });
            done->wait(std::nullopt);
            scene.scheduler.sleep(1s);  // nobody waits for what is left of it
          },
          seed);
    }
  }
}

TEST(SessionCallbacks, RunOneAtATime) {
  play<SessionScene>([](SessionScene& scene) {
    int running = 0;
    for (int i = 0; i < 5; ++i) {
      scene.session->battery().then([&](const auto&) {
        EXPECT_EQ(++running, 1);
        scene.scheduler.sleep(1s);
        --running;
      });
    }
    scene.scheduler.sleep(100ms);
    EXPECT_TRUE(scene.session->firmware().wait()) << "the worker waits for none of them";
    EXPECT_LE(scene.now(), 1s);
    scene.session = nullptr;
    EXPECT_GE(scene.now(), 5s) << "all have run when the session is gone";
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
  auto download = session->download(folder.file("a"));
  auto future = session->battery().future();
  EXPECT_EQ(levels(*session).run(*scheduler), 240U);
  EXPECT_EQ(future.get().value(), 80U);
  EXPECT_TRUE(download.wait());
  EXPECT_TRUE(contentOf(folder.file("a")) == text(storedRecording(2)));
  std::stop_source stop;
  auto recording = session->record(folder.file("b"), {}, stop.get_token());
  EXPECT_TRUE(session->battery().wait());
  stop.request_stop();
  EXPECT_EQ(codeOf(recording.wait()), Errc::cancelled);
}

}  // namespace
}  // namespace kwtsdk::testing
