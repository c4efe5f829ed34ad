// Events, streams and progress: what hosts hear without asking.

#include <gtest/gtest.h>

#include "tests/session/every_operation.h"

namespace kwtsdk::testing {
namespace {

using session::AudioPacket, session::Event, session::ProgressReport;
namespace event = session::event;

/// An event as a word; the end of an operation by its name.
std::string wordOf(const Event& given) {
  static constexpr std::array kWords{"link",    "battery",   "started",   "ended",     "saved",
                                     "deleted", "installed", "operation", "unexpected"};
  const auto* const end = std::get_if<event::OperationEnded>(&given);
  return end == nullptr ? kWords.at(given.index()) : end->name + (end->error ? " failed" : " done");
}

TEST(SessionStreams, TellEachEventOnceInItsOrder) {
  play<SessionScene>([](SessionScene& scene) {
    const auto events = scene.session->events(), few = scene.session->events(3);
    scene.store->put(storedRecording(1));
    scene.session->battery().wait().value();
    scene.session->download(scene.file("a")).wait().value();
    scene.session->record(scene.file("b"), RecordOptions().length(100ms)).wait().value();
    writeFile(scene.file("image"), firmwareImage());
    scene.session->update(scene.file("image")).wait().value();
    static_cast<void>(scene.session->remove(3).wait());
    scene.session->disconnect().wait().value();
    scene.session->close();
    Lines words;
    for (const Event& each : allOf(events)) words.push_back(wordOf(each));
    EXPECT_EQ(words, (Lines{"link", "link", "battery", "battery done", "saved", "deleted", "download done",
                            "started", "ended", "record done", "installed", "update done", "remove failed",
                            "link", "disconnect done"}));
    EXPECT_EQ(allOf(few).size(), 3U);
    EXPECT_EQ(few.missed(), words.size() - 3);
    EXPECT_TRUE(allOf(scene.session->events()).empty()) << "of a session that is closed";
  });
}

TEST(SessionStreams, LoseNothingToANextThatWasCancelled) {
  playSeeds<SessionScene>(100, [](SessionScene& scene, auto seed) {
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
      const auto given = next.wait();
      EXPECT_TRUE(given || given.error() == Errc::cancelled);
      if (given && *given) ++heard;
    }
    queried->wait(std::nullopt);
    scene.session->close();
    EXPECT_EQ(heard + allOf(events).size(), 40U)
        << "seed " << seed << ": a battery and an end for each query";
  });
}

TEST(SessionStreams, WaitNoLongerThanAskedAndEndWithTheSession) {
  play<SessionScene>([](SessionScene& scene) {
    const auto events = scene.session->events();
    EXPECT_EQ(codeOf(events.next(Limits().timeout(3s)).wait()), Errc::timedOut);
    EXPECT_EQ(scene.now(), 3s);
    std::stop_source stop;
    const auto stopped = events.next(stop.get_token());
    stop.request_stop();
    EXPECT_EQ(codeOf(stopped.wait()), Errc::cancelled);
    EXPECT_EQ(codeOf(events.next(stop.get_token()).wait()), Errc::cancelled) << "requested before";
    const auto last = events.next();
    scene.session->close();
    const auto end = last.wait();
    EXPECT_TRUE(end && !*end);
    scene.session = nullptr;
    EXPECT_TRUE(events.next().wait()) << "the stream outlives its session";
  });
}

TEST(SessionStreams, GiveTheAudioToItsReadersAndToACallback) {
  play<SessionScene>([](SessionScene& scene) {
    const auto all = scene.session->audio(), few = scene.session->audio(10), called = scene.session->audio();
    std::vector<std::uint64_t> numbers;
    called.forEach([&](const AudioPacket& packet) {
      numbers.push_back(packet.number);
      if (packet.number == 3) throw std::runtime_error("of the host's own");
    });
    scene.session->record(scene.file("live"), RecordOptions().length(1s)).wait().value();
    scene.session = nullptr;
    const auto packets = allOf(all);
    EXPECT_EQ(packets.size(), scene.microphone->made.at(0));
    EXPECT_EQ(numbers.size(), packets.size());
    for (std::uint64_t number = 0; number < packets.size(); ++number) {
      EXPECT_EQ(packets[number].number, number);
      EXPECT_EQ(packets[number].opus, NumberedMicrophone::packet(0, number));
      EXPECT_EQ(numbers.at(number), number);
    }
    EXPECT_EQ(all.missed(), 0U);
    EXPECT_EQ(few.missed(), packets.size() - 10);
    EXPECT_EQ(allOf(few).at(0).number, packets.size() - 10) << "the oldest are lost";
    EXPECT_GE(scene.log->count("of the host's own"), 1);
  });
}

TEST(SessionProgress, ComesAtMostTenTimesASecondAndEndsBeforeTheResult) {
  play<SlowScene>([](SlowScene& scene) {
    using Stage = ProgressReport::Stage;
    scene.store->put(storedRecording(3));
    std::vector<std::pair<Duration, ProgressReport>> reports;
    bool isOver = false;
    const auto held = std::make_shared<int>();
    auto download = scene.session->download(scene.file("a"));
    download.onProgress([&, held, download](const ProgressReport& report) {
      EXPECT_FALSE(isOver) << "after the result";
      reports.emplace_back(scene.now(), report);
    });
    download.then([&](const auto&) { isOver = true; });
    ASSERT_TRUE(download.wait());
    scene.session = nullptr;
    ASSERT_TRUE(isOver);
    EXPECT_EQ(held.use_count(), 1) << "the callback is still there";
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
  std::set<Duration> lasted;
  playEach<SlowScene>(std::array{0s, 2s}, [&](SlowScene& scene, Duration slow) {
    scene.store->put(storedRecording(2));
    auto download = scene.session->download(scene.file("a"));
    download.onProgress([&scene, slow](const ProgressReport&) { scene.scheduler.sleep(slow); });
    download.wait().value();
    lasted.insert(scene.now());
  });
  EXPECT_EQ(lasted.size(), 1U);
}

}  // namespace
}  // namespace kwtsdk::testing
