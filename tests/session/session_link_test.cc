// The session's link, and frames of a host's own.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {
namespace {

using session::Done, session::LinkState, session::Transaction;

// ---- The link ----

TEST(SessionLink, IsEndedWhenItWasIdleForLongEnough) {
  const std::tuple<std::optional<Duration>, Duration, unsigned> table[]{
      {30s, 29s, 1}, {30s, 31s, 2}, {0s, 0s, 2}, {std::nullopt, 3000s, 1}};
  playEach<SessionScene>(table, [](SessionScene& scene, auto keep, Duration idle, unsigned opens) {
    scene.session = scene.open(Options().keepLink(keep));
    scene.session->battery().wait().value();
    scene.scheduler.sleep(idle);
    EXPECT_EQ(scene.session->snapshot().link == LinkState::open, opens == 1);
    scene.session->battery().wait().value();
    EXPECT_EQ(scene.link->opens, opens);
  });
}

// ---- Frames of a host's own ----

session::Operation<Done> transact(SessionScene& scene, Frames::Body body, const Limits& limits = {}) {
  return scene.session->transact(std::make_shared<Frames>(std::move(body)), limits);
}

TEST(SessionTransact, HasTheRecorderToItself) {
  play<SessionScene>([](SessionScene& scene) {
    const auto good = transact(scene, [&](Transaction& recorder) -> Result<Done> {
      EXPECT_EQ(levelOf(recorder).value().at(24), 80);
      return recorder.pause(2s);
    });
    EXPECT_TRUE(good.wait());
    EXPECT_EQ(scene.now(), 2s);
    EXPECT_FALSE(transact(scene, [](auto&) -> Result<Done> { throw std::runtime_error("own"); }).wait());
    const auto own =
        transact(scene, [](auto&) -> Result<Done> { return session::Failure(Errc::refused, "own"); });
    EXPECT_EQ(codeOf(own.wait()), Errc::refused);

    scene.onFrame = [](const std::string&) { return false; };
    const auto unanswered = [](Transaction& recorder) -> Result<Done> { return levelOf(recorder).error(); };
    Duration begin = scene.now();
    EXPECT_EQ(codeOf(transact(scene, unanswered, Limits().timeout(3s)).wait()), Errc::timedOut);
    EXPECT_LE(scene.now() - begin, 3100ms);
    begin = scene.now();
    auto pausing = transact(scene, [](Transaction& recorder) { return recorder.pause(1h); });
    scene.scheduler.sleep(1s);
    pausing.cancel();
    EXPECT_EQ(codeOf(pausing.wait()), Errc::cancelled);
    EXPECT_LE(scene.now() - begin, 1100ms);
  });
}

TEST(SessionTransact, AnAnswerComesOnItsOwnCharacteristicAlone) {
  play<SlowScene>([](SlowScene& scene) {
    const auto both = transact(scene, [](Transaction& recorder) -> Result<Done> {
      const auto any = [](const Bytes&) { return true; };
      const auto started = recorder.exchange(wire::startRecordRequest(0), wire::CHARACTERISTIC_WRITE,
                                             wire::CHARACTERISTIC_NOTIFY, any);
      EXPECT_EQ(started.value().size(), 8U);
      for (int i = 0; i < 9; ++i) EXPECT_EQ(levelOf(recorder, any).value().size(), 32U) << "this is sound";
      return Done{};
    });
    EXPECT_TRUE(both.wait());
  });
}

// The answer to the first comes while the second waits for its own, or the first one's predicate throws.
TEST(SessionTransact, AnExchangeThatFailedHasNoPartInTheNext) {
  playEach<SessionScene>(std::array{true, false}, [](SessionScene& scene, bool throws) {
    int answers = 0;
    scene.model->setReplyFilter([&](const Bytes&, Bytes reply) {
      reply.back() = static_cast<std::uint8_t>(++answers);
      return std::optional(std::move(reply));
    });
    if (!throws) scene.faults.add(LinkEvent::notification, 1, {Fault::delay, 10500ms});
    const auto asking = transact(scene, [&](Transaction& recorder) -> Result<Done> {
      const auto first = [&] {
        return levelOf(recorder, [&](const Bytes&) -> bool {
          return throws ? throw std::runtime_error("of the host") : true;
        });
      };
      if (throws) {
        EXPECT_THROW(static_cast<void>(first()), std::runtime_error);
      } else {
        EXPECT_EQ(codeOf(first()), Errc::stalled);
      }
      EXPECT_EQ(levelOf(recorder).value().back(), 2);
      return Done{};
    });
    EXPECT_TRUE(asking.wait());
  });
}

}  // namespace
}  // namespace kwtsdk::testing
