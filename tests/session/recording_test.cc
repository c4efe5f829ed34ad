// Live recordings: every packet that the recorder sends is in the file, and it is never left recording.

#include <gtest/gtest.h>

#include "tests/session/session_host.h"

namespace kwtsdk::testing {
namespace {

using session::Recorded;
using session::RecordingEnd;
using session::RecordingType;

/// All that the recorder has recorded is in the file, in its order.
void expectWhole(SessionScene& scene, const Result<Recorded>& recorded, std::size_t which = 0) {
  const Recorded* const achieved = recorded.achieved();
  ASSERT_NE(achieved, nullptr) << (recorded ? "" : recorded.error().text());
  const std::size_t made = scene.microphone->made.at(which);
  EXPECT_EQ(achieved->packets, made);
  EXPECT_EQ(achieved->bytes, made * 8);
  EXPECT_EQ(achieved->length, made * 20ms);
  EXPECT_TRUE(contentOf(achieved->file.string()) == NumberedMicrophone::file(which, made))
      << "not what was sent";
  EXPECT_FALSE(scene.model->recording());
}

session::Operation<Recorded> record(SessionScene& scene, std::optional<Duration> length = {}) {
  return scene.session->record(scene.file("live"),
                               length ? RecordOptions().length(*length) : RecordOptions());
}

TEST(SessionRecording, EndsWellByTimeStopKeyOrCall) {
  const std::pair<RecordingEnd, std::function<void(SessionScene&)>> table[]{
      {RecordingEnd::timeOver, [](SessionScene&) {}},
      {RecordingEnd::stopped, [](SessionScene& scene) { scene.session->stopRecording().wait().value(); }},
      {RecordingEnd::key, [](SessionScene& scene) { scene.model->pressKey(); }},
      {RecordingEnd::call, [](SessionScene& scene) { scene.model->setInCall(true); }}};
  const auto check = [](SessionScene& scene, RecordingEnd end, const auto& act) {
    const auto recording = record(scene, 2s);
    scene.scheduler.sleep(1s);
    act(scene);
    const auto recorded = recording.wait();
    ASSERT_TRUE(recorded) << recorded.error().text();
    EXPECT_EQ(recorded->end, end);
    EXPECT_GE(recorded->packets, end == RecordingEnd::timeOver ? 95U : 40U);
    expectWhole(scene, recorded);
  };
  playEach<SessionScene>(table, check);
  playEach<SlowScene>(table, check);  // where audio is under way when a stop is answered
}

TEST(SessionRecording, OfEachTypeBeginsUnlessACallSaysNo) {
  const std::tuple<RecordingType, bool, std::error_code, const char*> table[]{
      {RecordingType::normal, false, kOk, "0181010000"},
      {RecordingType::noiseReduced, false, kOk, "0281010000"},
      {RecordingType::call, true, kOk, "0381010000"},
      {RecordingType::media, false, kOk, "0481010000"},
      {RecordingType::ambient, false, kOk, "0081010000"},
      {RecordingType::normal, true, Errc::inCall, "0181010000"},
      {RecordingType::call, false, Errc::notInCall, "0381010000"}};
  playEach<SessionScene>(table, [](SessionScene& scene, auto type, bool inCall, auto code, auto frame) {
    scene.model->setInCall(inCall);
    const auto recorded =
        scene.session->record(scene.file("live"), RecordOptions().type(type).length(200ms)).wait();
    EXPECT_EQ(codeOf(recorded), code);
    EXPECT_EQ(scene.frames.front(), frame);
    EXPECT_FALSE(scene.model->recording());
    EXPECT_TRUE(recorded || (recorded.error().effect() == Effect::none && recorded.error().cause()));
  });
}

// A recorder that has just ended one by itself takes that frame for a stop which crossed its end.
TEST(SessionRecording, AnAmbientOneBeginsRightBehindOneThatTheKeyEnded) {
  playSeeds<SessionScene>(50, [](SessionScene& scene, auto) {
    scene.model->setKeyAfter(200ms);
    const auto first = record(scene);
    const auto second =
        scene.session->record(scene.file("b"), RecordOptions().type(RecordingType::ambient).length(100ms));
    EXPECT_EQ(first.wait()->end, RecordingEnd::key);
    expectWhole(scene, second.wait(), 1);
  });
}

// ---- Packets, answers and their order ----

// What is late of one recording must neither begin nor end the next, which then would be left running.
TEST(SessionRecording, TheLateEndOfTheOneBeforeIsNotItsOwn) {
  play<SessionScene>([](SessionScene& scene) {
    for (const std::size_t which : {0U, 1U}) {
      const auto recording = scene.session->record(scene.file(std::to_string(which)));
      EXPECT_FALSE(recording.waitFor(3010ms)) << "ended while it recorded";
      // The answer to the stop comes in between.
      scene.faults.add(LinkEvent::notification, scene.faults.count(LinkEvent::notification) + 2,
                       {Fault::delay, 1s});
      scene.session->stopRecording().wait().value();
      expectWhole(scene, recording.wait(), which);
    }
  });
}

TEST(SessionRecording, QueriesAreLetInAndCostNoAudio) {
  play<SlowScene>([](SlowScene& scene) {
    const auto recording = record(scene, 3s);
    const auto list = scene.session->recordings();
    for (const std::uint32_t level : {10U, 20U, 30U}) {
      scene.scheduler.sleep(300ms);
      scene.model->setBatteryLevel(level);
      EXPECT_EQ(scene.session->battery().wait().value_or(0), level);
      EXPECT_TRUE(scene.session->firmware().wait());
      EXPECT_TRUE(scene.session->storage().wait());
      EXPECT_EQ(scene.session->snapshot().running, "record");
    }
    EXPECT_FALSE(recording.done());
    EXPECT_FALSE(list.done()) << "waits until the recording is over";
    expectWhole(scene, recording.wait());
    EXPECT_TRUE(list.wait());
  });
}

// A query that is not answered must neither cut the recording nor put its audio out of order, also where the
// recorder itself ends it meanwhile.
TEST(SessionRecording, AQueryWithoutAnswerCostsNothing) {
  const std::tuple<bool, Limits, Errc> table[]{{false, Limits().timeout(5s), Errc::timedOut},
                                               {true, Limits().timeout(5s), Errc::timedOut},
                                               {false, Limits().silence(1s), Errc::stalled}};
  playEach<SlowScene>(table, [](SlowScene& scene, bool ends, const Limits& limits, Errc code) {
    scene.onFrame = [](const std::string& frame) { return !frame.starts_with("99ec"); };
    if (ends) scene.model->setKeyAfter(1s);
    const auto recording = record(scene, 20s);
    scene.scheduler.sleep(500ms);
    const auto level = scene.session->battery(limits);
    const auto behind = scene.session->battery(Limits().timeout(8s));
    EXPECT_TRUE(level.waitFor(6s));
    EXPECT_EQ(recording.done(), ends);
    const auto recorded = recording.wait();
    ASSERT_TRUE(recorded) << recorded.error().text();
    EXPECT_EQ(recorded->end, ends ? RecordingEnd::key : RecordingEnd::timeOver);
    expectWhole(scene, recorded);
    EXPECT_EQ(codeOf(level.wait()), code);
    EXPECT_EQ(codeOf(behind.wait()), Errc::timedOut);
  });
}

// The answer to a let-in query that was given up comes while the next one waits for its own.
TEST(SessionRecording, ALateAnswerToALetInQueryIsNotTheValueOfTheNext) {
  play<SessionScene>([](SessionScene& scene) {
    std::optional<Bytes> late;
    scene.link->onUpdate = [&](const Bytes& value) -> std::vector<Bytes> {
      if (value.at(0) != 0x99 || !scene.model->recording()) return {value};
      if (!late) return late = value, std::vector<Bytes>{};
      return {*late, value};
    };
    const auto recording = record(scene, 9s);
    scene.scheduler.sleep(500ms);
    EXPECT_EQ(codeOf(scene.session->battery(Limits().timeout(2s)).wait()), Errc::timedOut);
    scene.model->setBatteryLevel(20);
    EXPECT_EQ(scene.session->battery(Limits().timeout(20s)).wait().value_or(20), 20U);
    expectWhole(scene, recording.wait());
  });
}

// ---- Stops ----

// Otherwise it would go on for as long as an idle link is kept.
TEST(SessionRecording, WithoutAnAnswerToItsStartOrStopItEndsWithTheLink) {
  for (const std::string why : {"its length", "stopped", "cancelled", "refused"}) {
    play<SessionScene>([&](SessionScene& scene) {
      SCOPED_TRACE(why);
      if (why == "refused") scene.faults.add(LinkEvent::acknowledgement, 1, {Fault::refuse, {}});
      scene.onFrame = [](const std::string& frame) { return !frame.starts_with("0081"); };
      auto recording = record(scene, why == "its length" ? std::optional<Duration>(1s) : std::nullopt);
      scene.scheduler.sleep(500ms);
      if (why == "stopped") static_cast<void>(scene.session->stopRecording());
      if (why == "cancelled") recording.cancel();
      const auto recorded = recording.wait();
      EXPECT_LE(scene.now(), 6100ms);
      scene.scheduler.sleep(100ms);
      EXPECT_FALSE(scene.model->recording());
      EXPECT_EQ(codeOf(recorded), why == "refused"     ? Errc::linkFailed
                                  : why == "cancelled" ? Errc::cancelled
                                                       : Errc::stalled);
      const Recorded* const achieved = recorded.achieved();
      ASSERT_EQ(achieved == nullptr, why == "refused");
      EXPECT_TRUE(contentOf(scene.file("live")) ==
                  NumberedMicrophone::file(0, achieved ? achieved->packets : 0));
    });
  }
}

// Also of the sound that comes behind a stop.
TEST(SessionRecording, AFullDiskIsTold) {
  for (rlim_t size = 300; size < 420; size += 4) {
    play<SlowScene>([size](SlowScene& scene) {
      std::optional<FullDisk> full(size);
      const auto recorded = record(scene, 1s).wait();
      full.reset();
      if (recorded) return expectWhole(scene, recorded);
      EXPECT_EQ(codeOf(recorded), Errc::fileUnusable);
      EXPECT_EQ(contentOf(scene.file("live")).size(), size);
    });
  }
}

}  // namespace
}  // namespace kwtsdk::testing
