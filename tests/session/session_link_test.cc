// The session's link, and frames of a host's own.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"

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

struct Frames : session::Work {
  using Body = std::function<Result<Done>(Transaction&)>;
  explicit Frames(Body function) : body(std::move(function)) {}
  std::string name() const override { return "frames"; }
  Result<Done> run(Transaction& recorder) override { return body(recorder); }

  const Body body;
};

session::Operation<Done> transact(SessionScene& scene, Frames::Body body) {
  return scene.session->transact(std::make_shared<Frames>(std::move(body)));
}

TEST(SessionTransact, PausesAsLongAsAskedAndGivesItsOwnResult) {
  play<SessionScene>([](SessionScene& scene) {
    EXPECT_TRUE(transact(scene, [](Transaction& recorder) { return recorder.pause(2s); }).wait());
    EXPECT_EQ(scene.now(), 2s);
    const auto own =
        transact(scene, [](auto&) -> Result<Done> { return session::Failure(Errc::refused, "own"); });
    EXPECT_EQ(codeOf(own.wait()), Errc::refused);
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
      const auto level = [&](const std::function<bool(const Bytes&)>& isAnswer) {
        return recorder.exchange(internal::toData("99EC2A02B20A0001000000000000001003A34083DF"), "CA2A",
                                 "C92A", isAnswer);
      };
      if (throws) {
        const auto isAnswer = [](const Bytes&) -> bool { throw std::runtime_error("of the host"); };
        EXPECT_THROW(static_cast<void>(level(isAnswer)), std::runtime_error);
      } else {
        EXPECT_EQ(codeOf(level([](const Bytes&) { return true; })), Errc::stalled);
      }
      EXPECT_EQ(level([](const Bytes&) { return true; }).value().back(), 2);
      return Done{};
    });
    EXPECT_TRUE(asking.wait());
  });
}

}  // namespace
}  // namespace kwtsdk::testing
