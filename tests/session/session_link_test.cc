// The end of a session, its link, and frames of a host's own.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

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

}  // namespace
}  // namespace kwtsdk::testing
