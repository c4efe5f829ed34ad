// Queries, what every exchange with the recorder has to stand, the link, and frames of a host's own.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

// The recorder leaves the century out, and an empty store has no first recording. A count that arrived
// damaged must not cost a thousand questions.
TEST(SessionQueries, ListTheRecordings) {
  play<SessionScene>([](SessionScene& scene) {
    EXPECT_TRUE(scene.session->recordings().wait()->empty());
    for (const char* const created : {"2024-02-29 23:59:58", "2001-01-01 00:00:00", "2099-12-31 12:00:00",
                                      "1999-12-31 23:59:59", "2100-01-01 00:00:00"}) {
      scene.store->put(storedRecording(1), created);
    }
    bool isDamaged = false;
    scene.link->onUpdate = [&](Bytes value) {
      if (value.at(0) == 0x01 && !std::exchange(isDamaged, true)) value.at(5) = 0xF0;
      return std::vector<Bytes>{value};
    };
    const auto list = scene.session->recordings().wait();
    ASSERT_TRUE(list);
    ASSERT_EQ(list->size(), 5U);
    for (const session::RecordingInfo& info : *list) {
      const bool isOfThisCentury = info.id < list->at(3).id;
      EXPECT_EQ(info.created,
                isOfThisCentury ? std::optional(scene.store->held.at(info.id).created) : std::nullopt);
      EXPECT_EQ(info.bytes, 32768U);
    }
    EXPECT_LE(scene.frames.size(), 14U);
  });
}

TEST(SessionQueries, CostOneWriteAndOneNotificationOnceTheLinkIsThere) {
  play<SessionScene>([](SessionScene& scene) {
    scene.session->connect().wait().value();
    scene.simLink->drain();
    const auto before = scene.faults.seen;
    EXPECT_LE(scene.faults.count(LinkEvent::subscription), 3U);
    scene.session->battery().wait().value();
    scene.session->firmware().wait().value();
    scene.session->recordings().wait().value();
    const auto after = scene.faults.seen;
    EXPECT_EQ(after, (std::array{before[0] + 3, before[1] + 3, before[2] + 3, before[3]}));
  });
}

// ---- Whose answer is it? ----

TEST(SessionMatching, AnAnswerThatComesTwiceIsNotTheValueOfTheNextQueryOfItsKind) {
  playSeeds<SessionScene>(100, [](SessionScene& scene, auto seed) {
    scene.faults.add(seed % 2 == 0 ? LinkEvent::write : LinkEvent::notification, 1, {Fault::duplicate, {}});
    scene.session->battery().wait().value();
    scene.model->setBatteryLevel(20);
    EXPECT_EQ(scene.session->battery().wait().value_or(0), 20U) << "seed " << seed;
  });
}

TEST(SessionMatching, AnotherFramesAcknowledgementIsNotItsOwn) {
  play<SlowScene>([](SlowScene& scene) {
    const auto recording = scene.session->record(scene.file("r"));
    scene.scheduler.sleep(1s);
    const std::uint64_t next = scene.faults.count(LinkEvent::acknowledgement) + 1;
    scene.faults.add(LinkEvent::acknowledgement, next, {Fault::drop, {}});
    const auto level = scene.session->battery();
    EXPECT_FALSE(level.waitFor(200ms));
    EXPECT_TRUE(scene.session->stopRecording().wait() && recording.wait());
    EXPECT_EQ(level.wait().value_or(0), 80U);
    EXPECT_EQ(scene.framesLike("99ec"), 2U) << "it was asked again";
  });
}

// Frames that look like answers to something else, or like nothing: none of them may become a value.
TEST(SessionMatching, OnlyTheRightFrameIsAnAnswer) {
  const auto statusReply = [](std::uint8_t first, std::uint8_t asked, std::size_t size) {
    Bytes reply{first, 0xEC, 0x3A, 0, 0xB2};
    reply.resize(32);
    reply[20] = asked;
    reply[24] = 99;
    reply.resize(size);
    return reply;
  };
  const std::array strangers{statusReply(0x99, 0x7F, 32),       statusReply(0x99, 3, 25),
                             statusReply(0x98, 3, 32),          Bytes{1},
                             internal::toData("0182080001"),    internal::toData("03820800010000000a000000"),
                             internal::toData("50010300b8fffe")};
  playEach<SessionScene>(strangers, [](SessionScene& scene, const Bytes& stranger) {
    scene.store->put(storedRecording(1));
    const auto events = scene.session->events();
    scene.link->onUpdate = [&](const Bytes& value) { return std::vector{stranger, value}; };
    EXPECT_EQ(scene.session->battery().wait().value_or(0), 80U) << internal::hexString(stranger);
    EXPECT_EQ(scene.session->recordings().wait().value().size(), 1U) << internal::hexString(stranger);
    scene.session->close();
    const auto isIt = [&](const session::Event& event) {
      const auto* const seen = std::get_if<session::event::Unexpected>(&event);
      return seen != nullptr && seen->notification == stranger;
    };
    EXPECT_EQ(std::ranges::count_if(allOf(events), isIt), 3) << internal::hexString(stranger);
  });
}

// ---- Recorders and links that do not do what they should ----

TEST(SessionTrouble, EveryOperationEndsInTimeWhenTheRecorderIsSilent) {
  // Nothing arrives, acknowledgements alone arrive, or nothing is even acknowledged.
  for (const auto lost : {std::optional<LinkEvent>(), std::optional(LinkEvent::acknowledgement),
                          std::optional(LinkEvent::write)}) {
    for (const NamedOperation& operation : everyOperation()) {
      const std::tuple<Limits, std::error_code, Duration> table[]{
          {Limits().timeout(20s), Errc::timedOut, 26s},
          {Limits().silence(1s).reconnects(2), Errc::stalled, 14s}};
      playEach<SessionScene>(table, [&](SessionScene& scene, auto limits, auto code, Duration longest) {
        scene.model->setReplyFilter([](const Bytes&, const Bytes&) { return std::nullopt; });
        for (std::uint64_t i = 1; lost && i < 100; ++i) scene.faults.add(*lost, i, {Fault::drop, {}});
        const auto ended = operation.run(scene, limits);
        EXPECT_TRUE(ended == code || (limits.timeout() && ended == std::errc::timed_out)) << operation.name;
        EXPECT_LE(scene.now(), longest) << operation.name;
      });
    }
  }
}

TEST(SessionTrouble, ALinkThatCannotBeMadeOrIsLostAtOnceIsTriedAsOftenAsAsked) {
  for (const NamedOperation& operation : everyOperation()) {
    const std::pair<unsigned, Errc> table[]{
        {0, Errc::linkFailed}, {2, Errc::linkFailed}, {0, Errc::linkLost}, {2, Errc::linkLost}};
    playEach<SessionScene>(table, [&](SessionScene& scene, unsigned times, Errc code) {
      if (code == Errc::linkFailed) {
        scene.simLink->disconnect();
        scene.link->onOpen = [] { return Error("host.bluetooth", 7, {}); };
      }
      for (std::uint64_t i = 1; code == Errc::linkLost && i < 100; ++i)
        scene.faults.add(LinkEvent::subscription, i, {Fault::disconnect, {}});
      EXPECT_EQ(operation.run(scene, Limits().reconnects(times)), code) << operation.name;
      EXPECT_LE(scene.link->opens, times + 1) << operation.name;
      EXPECT_LE(scene.now(), 60s);
    });
  }
}

TEST(SessionTrouble, WhatIsNoRecorderIsNamedSo) {
  for (const NamedOperation& operation : everyOperation()) {
    play<SessionScene>([&](SessionScene& scene) {
      scene.link->missing = 1;
      EXPECT_EQ(operation.run(scene, {}), Errc::notARecorder) << operation.name;
    });
  }
  const auto scheduler = VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    SessionScene scene(scheduler, {.mtu = 98}), other(scheduler, {.mtu = 99});
    EXPECT_EQ(codeOf(scene.session->recordings().wait()), Errc::packetsTooSmall);
    EXPECT_EQ(codeOf(other.session->recordings().wait()), kOk);
  });
}

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
