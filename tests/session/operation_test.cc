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

// ---- The end of a session ----

TEST(SessionEnd, ClosedAtAnyMomentEveryOperationEnds) {
  for (const NamedOperation& operation : everyOperation()) {
    for (const bool drops : {false, true}) {
      for (const Duration after : {0ms, 5ms, 30ms, 130ms, 290ms, 480ms, 700ms}) {
        play<SlowScene>([&](SlowScene& scene) {
          SCOPED_TRACE(operation.name + (" closed after " + std::to_string(after.count() / 1'000'000)));
          const auto ended = scene.scheduler.semaphore("ended");
          const auto session = scene.session;
          std::error_code code;
          scene.scheduler.spawn("host", [&, ended] {
            code = operation.run(scene, {});
            ended->signal();
          });
          const auto behind = session->battery();
          scene.scheduler.sleep(after);
          const Duration begin = scene.now();
          session->close();
          EXPECT_TRUE(session->stopRecording().done()) << "asked of a session that is closed";
          if (drops && after > 0ms) scene.session = nullptr;
          ended->wait(std::nullopt);
          EXPECT_TRUE(code == kOk || code == Errc::closed) << code.message();
          EXPECT_LE(scene.now() - begin, 6s);
          EXPECT_TRUE(codeOf(behind.wait()) == kOk || codeOf(behind.wait()) == Errc::closed);
          EXPECT_EQ(codeOf(session->battery().wait()), Errc::closed);
          EXPECT_EQ(codeOf(session->stopRecording().wait()), Errc::closed);
          EXPECT_FALSE(scene.model->recording());
        });
      }
    }
  }
}

TEST(SessionEnd, OperationsOutliveTheirHandles) {
  play<SessionScene>([](SessionScene& scene) {
    scene.store->put(storedRecording(1));
    static_cast<void>(scene.session->download(scene.file("a")));
    static_cast<void>(scene.session->remove(77));
    scene.session->recordings().wait().value();
    EXPECT_TRUE(scene.store->isOnDisk(storedRecording(1)));
    scene.session = nullptr;
    EXPECT_GE(scene.log->count("remove"), 1) << "a failure that nobody hears of is logged";
  });
}

// ---- The link ----

TEST(SessionLink, IsEndedWhenItWasIdleForLongEnough) {
  struct Case {
    std::optional<Duration> keep;
    Duration idle;
    unsigned opens;
  };
  const std::vector<Case> table{{30s, 29s, 1}, {30s, 31s, 2}, {0s, 0s, 2}, {std::nullopt, 3000s, 1}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Case& test) {
    scene.session = scene.open(Options().keepLink(test.keep));
    scene.session->battery().wait().value();
    scene.scheduler.sleep(test.idle);
    EXPECT_EQ(scene.session->snapshot().link == session::LinkState::open, test.opens == 1);
    scene.session->battery().wait().value();
    EXPECT_EQ(scene.link->opens, test.opens);
  });
}

// The end of one may be told when the next but one is open.
TEST(SessionLink, IsNotLostByTheEndOfOneBefore) {
  for (std::uint64_t seed = 1; seed < 500; ++seed) {
    play<SessionScene>(
        [&](SessionScene& scene) {
          scene.session = scene.open(Options().keepLink(0s));
          const auto once = Limits().reconnects(0);
          const std::array levels{scene.session->battery(once), scene.session->battery(once),
                                  scene.session->battery(once), scene.session->battery(once)};
          for (const auto& level : levels) EXPECT_EQ(codeOf(level.wait()), kOk) << "seed " << seed;
        },
        seed);
  }
}

TEST(SessionLink, IsMadeAndEndedWhenAsked) {
  play<SessionScene>([](SessionScene& scene) {
    EXPECT_EQ(scene.session->snapshot().link, session::LinkState::closed);
    scene.session->connect().wait().value();
    EXPECT_EQ(scene.session->snapshot().link, session::LinkState::open);
    EXPECT_EQ(scene.frames, Lines());
    scene.session->disconnect().wait().value();
    EXPECT_EQ(scene.session->snapshot().link, session::LinkState::closed);
    EXPECT_EQ(scene.simLink->peripheral()->state(), PeripheralState::disconnected);
  });
}

// ---- Frames of a host's own ----

class Frames : public session::Work {
 public:
  using Body = std::function<Result<session::Done>(session::Transaction&)>;
  explicit Frames(Body body) : body_(std::move(body)) {}
  std::string name() const override { return "frames"; }
  Result<session::Done> run(session::Transaction& recorder) override { return body_(recorder); }

 private:
  const Body body_;
};

Result<Bytes> levelOf(session::Transaction& recorder) {
  return recorder.exchange(internal::toData("99EC2A02B20A0001000000000000001003A34083DF"), "CA2A", "C92A",
                           [](const Bytes& value) { return value.size() == 32; });
}

TEST(SessionTransact, HasTheRecorderToItself) {
  play<SessionScene>([](SessionScene& scene) {
    const auto frames = [&](Frames::Body body, const Limits& limits = {}) {
      return scene.session->transact(std::make_shared<Frames>(std::move(body)), limits);
    };
    const auto good = frames([&](session::Transaction& recorder) -> Result<session::Done> {
      const auto answer = levelOf(recorder);
      if (!answer) return answer.error();
      EXPECT_EQ(answer->at(24), 80);
      return recorder.pause(2s);
    });
    EXPECT_TRUE(good.wait());
    EXPECT_EQ(scene.now(), 2s);
    EXPECT_FALSE(frames([](session::Transaction&) -> Result<session::Done> {
                   throw std::runtime_error("own");
                 }).wait());
    const auto own = frames([](session::Transaction&) -> Result<session::Done> {
      return session::Failure(Errc::refused, "own");
    });
    EXPECT_EQ(codeOf(own.wait()), Errc::refused);

    scene.onFrame = [](const std::string&) { return false; };
    const auto unanswered = [](session::Transaction& recorder) -> Result<session::Done> {
      const auto answer = levelOf(recorder);
      return answer ? Result<session::Done>(session::Done()) : answer.error();
    };
    Duration begin = scene.now();
    EXPECT_EQ(codeOf(frames(unanswered, Limits().timeout(3s)).wait()), Errc::timedOut);
    EXPECT_LE(scene.now() - begin, 3100ms);
    begin = scene.now();
    auto pausing = frames([](session::Transaction& recorder) { return recorder.pause(1h); });
    scene.scheduler.sleep(1s);
    pausing.cancel();
    EXPECT_EQ(codeOf(pausing.wait()), Errc::cancelled);
    EXPECT_LE(scene.now() - begin, 1100ms);
  });
}

// Nothing would ever end if the worker waited for itself.
TEST(SessionTransact, AWaitInsideForTheSameSessionEnds) {
  play<SessionScene>([](SessionScene& scene) {
    const auto work = std::make_shared<Frames>([&](session::Transaction&) -> Result<session::Done> {
      static_cast<void>(scene.session->battery().wait());
      return session::Done();
    });
    const Duration begin = scene.now();
    static_cast<void>(scene.session->transact(work).wait());
    EXPECT_LE(scene.now() - begin, 36s);
    EXPECT_TRUE(scene.session->battery().wait());
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
