// Live recordings: every packet that the recorder sends is in the file, and it is never left recording.

#include <gtest/gtest.h>

#include <sys/stat.h>

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

TEST(SessionRecording, EndsWellByTimeStopKeyOrCall) {
  struct Case {
    RecordingEnd end;
    std::function<void(SessionScene&)> act;
  };
  const std::vector<Case> table{
      {RecordingEnd::timeOver, [](SessionScene&) {}},
      {RecordingEnd::stopped, [](SessionScene& scene) { scene.session->stopRecording().wait().value(); }},
      {RecordingEnd::key, [](SessionScene& scene) { scene.model->pressKey(); }},
      {RecordingEnd::call, [](SessionScene& scene) { scene.model->setInCall(true); }}};
  const auto check = [](SessionScene& scene, const Case& test) {
    auto recording =
        scene.session->record(scene.file("live"), RecordOptions().length(std::chrono::seconds(2)));
    scene.scheduler.sleep(1s);
    test.act(scene);
    const auto recorded = recording.wait();
    ASSERT_TRUE(recorded) << recorded.error().text();
    EXPECT_EQ(recorded->end, test.end);
    EXPECT_GE(recorded->packets, test.end == RecordingEnd::timeOver ? 95U : 40U);
    expectWhole(scene, recorded);
  };
  playEach<SessionScene>(table, check);
  playEach<SlowScene>(table, check);  // where audio is under way when a stop is answered
}

TEST(SessionRecording, OfEachTypeBeginsUnlessACallSaysNo) {
  struct Case {
    RecordingType type;
    bool inCall;
    std::error_code code;
    const char* frame;
  };
  const std::vector<Case> table{{RecordingType::normal, false, kOk, "01"},
                                {RecordingType::noiseReduced, false, kOk, "02"},
                                {RecordingType::call, true, kOk, "03"},
                                {RecordingType::media, false, kOk, "04"},
                                {RecordingType::ambient, false, kOk, "00"},
                                {RecordingType::normal, true, Errc::inCall, "01"},
                                {RecordingType::call, false, Errc::notInCall, "03"}};
  playEach<SessionScene>(table, [](SessionScene& scene, const Case& test) {
    scene.model->setInCall(test.inCall);
    const auto recorded =
        scene.session->record(scene.file("live"), RecordOptions().type(test.type).length(200ms)).wait();
    EXPECT_EQ(codeOf(recorded), test.code);
    EXPECT_EQ(scene.frames.front(), test.frame + std::string("81010000"));
    EXPECT_FALSE(scene.model->recording());
    EXPECT_TRUE(recorded || recorded.error().effect() == Effect::none);
    EXPECT_TRUE(recorded || recorded.error().cause());
  });
}

// A recorder that has just ended one by itself takes that frame for a stop which crossed its end.
TEST(SessionRecording, AnAmbientOneBeginsRightBehindOneThatTheKeyEnded) {
  for (std::uint64_t seed = 1; seed < 50; ++seed) {
    play<SessionScene>(
        [](SessionScene& scene) {
          scene.model->setKeyAfter(200ms);
          auto first = scene.session->record(scene.file("a"));
          auto second = scene.session->record(scene.file("b"),
                                              RecordOptions().type(RecordingType::ambient).length(100ms));
          EXPECT_EQ(first.wait()->end, RecordingEnd::key);
          const auto recorded = second.wait();
          ASSERT_TRUE(recorded) << recorded.error().text();
          expectWhole(scene, recorded, 1);
        },
        seed);
  }
}

// ---- Packets, answers and their order ----

// Some recorders send audio behind their answer to a stop; it belongs to the recording.
TEST(SessionRecording, AudioBehindTheAnswerToAStopIsInTheFile) {
  play<SessionScene>([](SessionScene& scene) {
    std::vector<Bytes> held;
    scene.link->onUpdate = [&](const Bytes& value) {
      std::vector<Bytes> arrives{value};
      if (value.at(0) == 0x50) held.insert(held.begin(), std::exchange(arrives, {}).front());
      for (const std::size_t keep = value.at(0) == 0x00 ? 0 : 3; held.size() > keep; held.pop_back())
        arrives.push_back(held.back());
      return arrives;
    };
    auto recording = scene.session->record(scene.file("live"));
    scene.scheduler.sleep(1s);
    scene.session->stopRecording().wait().value();
    expectWhole(scene, recording.wait());
  });
}

TEST(SessionRecording, QueriesAreLetInAndCostNoAudio) {
  play<SlowScene>([](SlowScene& scene) {
    auto recording =
        scene.session->record(scene.file("live"), RecordOptions().length(std::chrono::seconds(3)));
    auto list = scene.session->recordings();
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
  for (const bool ends : {false, true}) {
    play<SlowScene>([&](SlowScene& scene) {
      scene.onFrame = [](const std::string& frame) { return !frame.starts_with("99ec"); };
      if (ends) scene.model->setKeyAfter(1s);
      auto recording =
          scene.session->record(scene.file("live"), RecordOptions().length(std::chrono::seconds(20)));
      scene.scheduler.sleep(500ms);
      auto level = scene.session->battery(Limits().timeout(5s));
      auto behind = scene.session->battery(Limits().timeout(8s));
      const auto recorded = recording.wait();
      ASSERT_TRUE(recorded) << recorded.error().text();
      EXPECT_EQ(recorded->end, ends ? RecordingEnd::key : RecordingEnd::timeOver);
      expectWhole(scene, recorded);
      EXPECT_EQ(codeOf(level.wait()), Errc::timedOut);
      EXPECT_EQ(codeOf(behind.wait()), Errc::timedOut);
    });
  }
}

// The end of a let-in query is claimed once; whoever comes second goes on.
TEST(SessionRecording, AQueryIsCancelledWhileItIsAnswered) {
  for (std::uint64_t seed = 1; seed < 400; ++seed) {
    play<SessionScene>(
        [](SessionScene& scene) {
          auto recording = scene.session->record(scene.file("live"), RecordOptions().length(100ms));
          scene.scheduler.sleep(50ms);
          const auto events = scene.session->events();  // whose reader gives the other thread a turn
          auto level = scene.session->battery();
          scene.scheduler.preemptionPoint();
          level.cancel();
          EXPECT_TRUE(codeOf(level.wait()) == kOk || codeOf(level.wait()) == Errc::cancelled);
          expectWhole(scene, recording.wait());
        },
        seed);
  }
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
    auto recording =
        scene.session->record(scene.file("live"), RecordOptions().length(std::chrono::seconds(9)));
    scene.scheduler.sleep(500ms);
    EXPECT_EQ(codeOf(scene.session->battery(Limits().timeout(2s)).wait()), Errc::timedOut);
    scene.model->setBatteryLevel(20);
    const auto level = scene.session->battery(Limits().timeout(20s)).wait();
    EXPECT_EQ(level.value_or(20), 20U);
    expectWhole(scene, recording.wait());
  });
}

TEST(SessionRecording, AudioStreamsToItsReadersMeanwhile) {
  play<SessionScene>([](SessionScene& scene) {
    const auto all = scene.session->audio(), few = scene.session->audio(10);
    scene.session->record(scene.file("live"), RecordOptions().length(1s)).wait().value();
    scene.session->close();
    std::uint64_t number = 0;
    for (auto packet = all.next().wait(); packet && *packet; packet = all.next().wait(), ++number) {
      EXPECT_EQ((*packet)->number, number);
      EXPECT_EQ((*packet)->opus, NumberedMicrophone::packet(0, number));
    }
    EXPECT_EQ(number, scene.microphone->made.at(0));
    EXPECT_EQ(all.missed(), 0U);
    EXPECT_EQ(few.missed(), number - 10);
    const auto first = few.next().wait();
    ASSERT_TRUE(first && *first);
    EXPECT_EQ((*first)->number, number - 10) << "the oldest are lost";
  });
}

// ---- Stops ----

// A stop would start a recorder that does not record.
TEST(SessionRecording, NoStopIsSentToARecorderThatDoesNotRecord) {
  play<SessionScene>([](SessionScene& scene) {
    EXPECT_TRUE(scene.session->stopRecording().wait());
    EXPECT_EQ(scene.frames, Lines());
  });
  for (std::uint64_t seed = 1; seed < 200; ++seed) {
    play<SlowScene>(
        [&](SlowScene& scene) {
          // The key and the stop at about the same time.
          scene.model->setKeyAfter(Duration(1ms) * (900 + seed));
          auto recording = scene.session->record(scene.file("live"));
          scene.scheduler.sleep(1s);
          EXPECT_TRUE(scene.session->stopRecording().wait());
          EXPECT_TRUE(scene.session->stopRecording().wait());
          expectWhole(scene, recording.wait());
          scene.scheduler.sleep(5s);
          EXPECT_EQ(scene.microphone->made.size(), 1U) << "seed " << seed;
          EXPECT_LE(scene.framesLike("0081"), 1U);
        },
        seed);
  }
}

TEST(SessionRecording, CancelledItLeavesARecorderThatDoesNotRecordAndAFileOfWhatCame) {
  for (const Duration after : {0ms, 1ms, 40ms, 100ms, 150ms, 1000ms, 2100ms}) {
    for (const bool slow : {false, true}) {
      play<SlowScene>([&](SlowScene& scene) {
        // The answer to the start is on its way when the recording is cancelled.
        if (slow) scene.faults.add(LinkEvent::notification, 1, {Fault::delay, 2s});
        auto recording = scene.session->record(scene.file("live"));
        scene.scheduler.sleep(after);
        recording.cancel();
        const Duration begin = scene.now();
        const auto recorded = recording.wait();
        EXPECT_EQ(codeOf(recorded), Errc::cancelled);
        EXPECT_LE(scene.now() - begin, 5s);
        EXPECT_FALSE(scene.model->recording());
        EXPECT_LE(scene.microphone->made.size(), 1U);
        if (recorded.partial() != nullptr && !scene.microphone->made.empty()) expectWhole(scene, recorded);
        EXPECT_TRUE(scene.session->battery().wait()) << "the next is not concerned";
      });
    }
  }
}

// Otherwise it would go on for as long as an idle link is kept.
TEST(SessionRecording, AStopWithoutAnswerEndsTheLinkAndWithItTheRecording) {
  for (const bool isCancelled : {false, true}) {
    play<SessionScene>([&](SessionScene& scene) {
      scene.onFrame = [](const std::string& frame) { return !frame.starts_with("0081"); };
      auto recording = scene.session->record(scene.file("live"), RecordOptions().length(1s));
      if (isCancelled) scene.scheduler.sleep(500ms), recording.cancel();
      const auto recorded = recording.wait();
      EXPECT_EQ(codeOf(recorded), isCancelled ? Errc::cancelled : Errc::stalled);
      EXPECT_LE(scene.now(), 6100ms);
      scene.scheduler.sleep(100ms);
      EXPECT_FALSE(scene.model->recording());
      ASSERT_NE(recorded.partial(), nullptr);
      EXPECT_TRUE(contentOf(scene.file("live")) == NumberedMicrophone::file(0, recorded.partial()->packets));
    });
  }
}

// A start that is answered late has its limit too.
TEST(SessionRecording, EndsNoLaterThanItsTimeAndWhatAStopTakes) {
  for (const Duration delay : {0s, 3s, 6s, 9s, 20s}) {
    for (const bool isStopped : {false, true}) {
      play<SessionScene>([&](SessionScene& scene) {
        scene.faults.add(LinkEvent::notification, 1, {Fault::delay, delay});
        scene.onFrame = [&](const std::string& frame) { return isStopped || !frame.starts_with("0081"); };
        const auto recorded = scene.session->record(scene.file("live"), {}, Limits().timeout(1s)).wait();
        EXPECT_EQ(codeOf(recorded), Errc::timedOut);
        EXPECT_LE(scene.now(), 7s) << delay.count();
        scene.scheduler.sleep(20s);
        EXPECT_FALSE(scene.model->recording());
      });
    }
  }
}

TEST(SessionRecording, ALostLinkEndsTheFileAndTellsWhatItHolds) {
  play<SessionScene>([](SessionScene& scene) {
    scene.faults.add(LinkEvent::notification, 40, {Fault::disconnect, {}});
    const auto recorded = scene.session->record(scene.file("live"), RecordOptions().length(5s)).wait();
    ASSERT_EQ(codeOf(recorded), Errc::linkLost);
    ASSERT_NE(recorded.partial(), nullptr);
    EXPECT_EQ(recorded.partial()->packets, 38U);
    EXPECT_TRUE(contentOf(scene.file("live")) == NumberedMicrophone::file(0, 38));
    expectWhole(scene, scene.session->record(scene.file("next"), RecordOptions().length(200ms)).wait(), 1);
  });
}

// ---- The file ----

TEST(SessionRecording, GoesIntoANewFileOnly) {
  play<SessionScene>([](SessionScene& scene) {
    std::filesystem::create_directory(scene.file("folder"));
    ::mkfifo(scene.file("pipe").c_str(), 0600);
    writeFile(scene.file("there"), "my letter");
    for (const std::string file : {"folder", "pipe", "there", "there/a", "missing/a"}) {
      const Duration begin = scene.now();
      EXPECT_EQ(codeOf(scene.session->record(scene.file(file), RecordOptions().length(100ms)).wait()),
                Errc::fileUnusable)
          << file;
      EXPECT_LE(scene.now() - begin, 1s);
    }
    EXPECT_EQ(contentOf(scene.file("there")), "my letter");
    EXPECT_FALSE(scene.model->recording());
  });
}

TEST(SessionRecording, AFullDiskEndsItAndTellsWhatIsInTheFile) {
  for (const rlim_t size : {0U, 1U, 8U, 100U}) {
    play<SessionScene>([&](SessionScene& scene) {
      const FullDisk full(size);
      const auto recorded = scene.session->record(scene.file("live"), RecordOptions().length(5s)).wait();
      EXPECT_EQ(codeOf(recorded), Errc::fileUnusable);
      EXPECT_FALSE(scene.model->recording());
      const std::string content = contentOf(scene.file("live"));
      EXPECT_TRUE(NumberedMicrophone::file(0, 100).starts_with(content));
      EXPECT_TRUE(recorded.partial() == nullptr || recorded.partial()->bytes == content.size());
      EXPECT_TRUE(scene.session->battery().wait());
    });
  }
}

}  // namespace
}  // namespace kwtsdk::testing
