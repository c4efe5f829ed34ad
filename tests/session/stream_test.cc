// Events, streams and progress: what hosts hear without asking.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

using session::Event;
using Stage = session::ProgressReport::Stage;
namespace event = session::event;

/// Each event until the stream ends, as a word.
Lines wordsOf(const session::Stream<Event>& events) {
  Lines words;
  for (auto next = events.next().wait(); next && *next; next = events.next().wait()) {
    words.push_back(std::visit(
        [](const auto& one) -> std::string {
          using Kind = std::decay_t<decltype(one)>;
          if constexpr (std::is_same_v<Kind, event::LinkChanged>)
            return "link " + std::to_string(static_cast<int>(one.state));
          else if constexpr (std::is_same_v<Kind, event::BatterySeen>)
            return "battery " + std::to_string(one.level);
          else if constexpr (std::is_same_v<Kind, event::RecordingStarted>)
            return "started";
          else if constexpr (std::is_same_v<Kind, event::RecordingEnded>)
            return "ended";
          else if constexpr (std::is_same_v<Kind, event::RecordingSaved>)
            return "saved " + std::to_string(one.recording.id);
          else if constexpr (std::is_same_v<Kind, event::RecordingDeleted>)
            return "deleted " + std::to_string(one.recording.id);
          else if constexpr (std::is_same_v<Kind, event::FirmwareInstalled>)
            return "installed";
          else if constexpr (std::is_same_v<Kind, event::OperationEnded>)
            return one.name + (one.error ? " failed" : " done");
          else
            return "unexpected";
        },
        **next));
  }
  return words;
}

TEST(SessionStreams, TellEachEventOnceInItsOrder) {
  play<SessionScene>([](SessionScene& scene) {
    const auto events = scene.session->events();
    scene.store->put(storedRecording(1));
    scene.session->battery().wait().value();
    scene.session->download(scene.file("a")).wait().value();
    scene.session->record(scene.file("b"), RecordOptions().length(100ms)).wait().value();
    static_cast<void>(scene.session->remove(3).wait());
    scene.session->disconnect().wait().value();
    scene.session->close();
    EXPECT_EQ(wordsOf(events), (Lines{"link 1", "link 2", "battery 80", "battery done", "saved 10",
                                      "deleted 10", "download done", "started", "ended", "record done",
                                      "remove failed", "link 0", "disconnect done"}));
  });
}

TEST(SessionStreams, AreBoundedAndTellWhatWasMissed) {
  play<SessionScene>([](SessionScene& scene) {
    const auto few = scene.session->events(3), all = scene.session->events();
    for (int i = 0; i < 10; ++i) scene.session->battery().wait().value();
    scene.session->close();
    const auto there = wordsOf(all);
    EXPECT_EQ(wordsOf(few).size(), 3U);
    EXPECT_EQ(few.missed(), there.size() - 3);
    EXPECT_EQ(wordsOf(scene.session->events()), Lines()) << "of a session that is closed";
  });
}

TEST(SessionStreams, LoseNothingToANextThatWasCancelled) {
  for (std::uint64_t seed = 1; seed < 100; ++seed) {
    play<SessionScene>(
        [&](SessionScene& scene) {
          scene.session->connect().wait().value();
          const auto events = scene.session->events();
          std::size_t heard = 0;
          const auto queried = scene.scheduler.semaphore("queried");
          scene.scheduler.spawn("host", [&, queried] {
            for (int i = 0; i < 20; ++i) static_cast<void>(scene.session->battery().wait());
            queried->signal();
          });
          for (int i = 0; i < 30; ++i) {
            const auto next = events.next();
            scene.scheduler.preemptionPoint();
            next.cancel();
            const auto event = next.wait();
            EXPECT_TRUE(event || event.error() == Errc::cancelled);
            if (event && *event) ++heard;
          }
          queried->wait(std::nullopt);
          scene.session->close();
          heard += wordsOf(events).size();
          EXPECT_EQ(heard, 40U) << "seed " << seed << ": a battery and an end for each query";
        },
        seed);
  }
}

TEST(SessionStreams, WaitNoLongerThanAskedAndEndWithTheSession) {
  play<SessionScene>([](SessionScene& scene) {
    const auto events = scene.session->events();
    const Duration begin = scene.now();
    EXPECT_EQ(codeOf(events.next(Limits().timeout(3s)).wait()), Errc::timedOut);
    EXPECT_EQ(scene.now() - begin, 3s);
    std::stop_source stop;
    const auto stopped = events.next(stop.get_token());
    stop.request_stop();
    EXPECT_EQ(codeOf(stopped.wait()), Errc::cancelled);
    EXPECT_EQ(codeOf(events.next(stop.get_token()).wait()), Errc::cancelled) << "requested before";
    std::size_t seen = 0;
    const auto each = scene.session->events();
    each.forEach([&](const Event&) { ++seen; });
    const auto last = events.next();
    scene.session->close();
    const auto end = last.wait();
    EXPECT_TRUE(end && !*end);
    scene.session = nullptr;
    EXPECT_EQ(seen, 0U);
    EXPECT_TRUE(events.next().wait()) << "the stream outlives its session";
  });
}

TEST(SessionStreams, GiveEachElementToACallbackOnTheExecutor) {
  play<SessionScene>([](SessionScene& scene) {
    std::vector<std::uint64_t> numbers;
    const auto audio = scene.session->audio();
    audio.forEach([&](const session::AudioPacket& packet) {
      numbers.push_back(packet.number);
      if (packet.number == 3) throw std::runtime_error("of the host's own");
    });
    scene.session->record(scene.file("a"), RecordOptions().length(400ms)).wait().value();
    scene.session = nullptr;
    ASSERT_EQ(numbers.size(), scene.microphone->made.at(0));
    EXPECT_TRUE(std::ranges::is_sorted(numbers));
    EXPECT_GE(scene.log->count("of the host's own"), 1);
  });
}

TEST(SessionProgress, ComesAtMostTenTimesASecondAndEndsBeforeTheResult) {
  play<SlowScene>([](SlowScene& scene) {
    scene.store->put(storedRecording(3));
    std::vector<std::pair<Duration, session::ProgressReport>> reports;
    bool isOver = false;
    auto download = scene.session->download(scene.file("a"));
    download.onProgress([&](const session::ProgressReport& report) {
      EXPECT_FALSE(isOver) << "after the result";
      reports.emplace_back(scene.now(), report);
    });
    download.then([&](const auto&) { isOver = true; });
    const auto saved = download.wait();
    ASSERT_TRUE(saved);
    scene.session = nullptr;
    ASSERT_TRUE(isOver);
    ASSERT_GE(reports.size(), 10U);
    EXPECT_EQ(reports.back().second.stage, Stage::over);
    EXPECT_EQ(reports.back().second.done, 3 * 32768U);
    std::size_t transfers = 0;
    for (std::size_t i = 1; i < reports.size(); ++i) {
      const auto& [time, report] = reports.at(i);
      const auto& [before, last] = reports.at(i - 1);
      EXPECT_GE(report.done, last.done);
      EXPECT_TRUE(report.stage != last.stage || time - before >= 99ms);
      if (report.stage != Stage::transferring) continue;
      ++transfers;
      EXPECT_EQ(report.total, 3 * 32768U);
    }
    EXPECT_GE(transfers, 5U);
  });
}

TEST(SessionProgress, ASlowCallbackSkipsAndHoldsUpNothing) {
  const auto lasts = [](Duration slow) {
    Duration lasted{0};
    play<SlowScene>([&](SlowScene& scene) {
      scene.store->put(storedRecording(2));
      auto download = scene.session->download(scene.file("a"));
      download.onProgress([&](const session::ProgressReport&) { scene.scheduler.sleep(slow); });
      download.wait().value();
      lasted = scene.now();
    });
    return lasted;
  };
  EXPECT_EQ(lasts(0s), lasts(2s));
}

}  // namespace
}  // namespace kwtsdk::testing
