#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using testing::contentOf;
using testing::FakeHost;
using Lines = std::vector<std::string>;

constexpr char kStarted[] = "1280040000005400", kAudio[] = "50010200abcd";
const std::string kAudioBytes = "\x50\x01\x02" + std::string("\0\xab\xcd", 3);

/// A host on virtual time whose device the test plays.
struct Recording {
  explicit Recording(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime)
      : scheduler(*virtualTime), host(virtualTime), started(scheduler), stopped(scheduler) {}

  void start(std::int64_t type = 0) {
    host.helper->startRecordWithType(type, path, started.completion());
    host.acknowledge(host.fileWrite);
  }
  void stop() {
    host.helper->stopRecord(stopped.completion());
    host.acknowledge(host.fileWrite);
  }
  void packet(const std::string& hex) {
    host.notify(host.fileNotify, hex);
    settle();
  }
  void settle() { scheduler.sleep(1ms); }
  std::string startText() const { return started.calls == 0 ? "none" : started.text(); }
  bool routed() const { return host.helper->writeDataBlock() != nullptr; }
  bool pending() const { return host.helper->completionBlock() != nullptr; }

  sim::VirtualTimeScheduler& scheduler;
  testing::TemporaryFolder folder;
  std::string path = folder.file("recording");
  FakeHost host;
  testing::Outcome started, stopped;
};

void record(const std::function<void(Recording&)>& body, std::uint64_t seed = 1) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    Recording recording(scheduler);
    body(recording);
  });
}

TEST(LiveRecording, EveryTypeSendsItsFrame) {
  for (const auto& [type, frame] : std::map<std::int64_t, std::string>{
           {0, "0181010000"}, {1, "0281010000"}, {2, "0381010000"}, {3, "0481010000"}, {4, "0081010000"}}) {
    record([&, type = type, frame = frame](Recording& r) {
      r.start(type);
      EXPECT_EQ(r.host.peripheral->calls, (Lines{"on 9E07", "write " + frame}));
      EXPECT_EQ(r.host.helper->cmdType(), KWTCmdTypeStartRecord);
      EXPECT_TRUE(r.routed() && r.pending() && r.host.helper->recordFileHandle()->isOpen());
    });
  }
  for (const std::int64_t type : {std::int64_t{5}, std::int64_t{-1}, INT64_MAX, INT64_MIN}) {
    record([&](Recording& r) {
      r.start(type);
      EXPECT_EQ(r.startText(), "1003 录音类型输入错误");
      EXPECT_TRUE(r.host.peripheral->calls.empty() && !fileIsExist(r.path) && r.host.log->lines().empty());
    });
  }
}

// Whatever comes first completes the start; what it is decides whether the recording goes on.
TEST(LiveRecording, TheFirstPacketDecides) {
  struct Case {
    const char* packet;
    const char* outcome;
    bool goesOn;
  };
  for (const Case& test : std::vector<Case>{{"1280040000005400", "ok", true},
                                            {"1280040000015400", "ok", true},
                                            {"1280040000025400", "ok", true},
                                            {"1280040000035400", "ok", true},
                                            {"1280040000045400", "ok", true},
                                            {kAudio, "ok", true},
                                            {"ffff", "ok", true},
                                            {"08010001", "ok", true},
                                            {"1280040000105400", "1004 启动录音失败", false},
                                            {"1280040000115400", "1004 启动录音失败", false},
                                            {"", "1004 启动录音失败", false},
                                            {"0801000100", "ok", false},
                                            {"0801001100", "ok", false},
                                            {"0801002100", "ok", false}}) {
    record([&](Recording& r) {
      r.start();
      EXPECT_EQ(r.startText(), "none");
      r.packet(test.packet);
      EXPECT_EQ(r.startText(), test.outcome) << test.packet;
      EXPECT_FALSE(r.pending());
      EXPECT_EQ(r.routed(), test.goesOn) << test.packet;
      EXPECT_EQ(r.host.helper->recordFileHandle()->isOpen(), test.goesOn);
      EXPECT_EQ(r.host.peripheral->calls.back(), test.goesOn ? "write 0181010000" : "off 9E07");
      EXPECT_EQ(contentOf(r.path), test.packet == kAudio ? kAudioBytes : "");
      r.packet(kAudio);
      EXPECT_EQ(contentOf(r.path).size(), (test.packet == kAudio ? 6U : 0U) + (test.goesOn ? 6U : 0U));
      EXPECT_EQ(r.started.calls, 1);
    });
  }
}

TEST(LiveRecording, AudioIsWrittenAsItCameOverTheOldFile) {
  record([&](Recording& r) {
    testing::writeFile(r.path, "an older, longer file");
    r.start();
    for (const char* packet : {kStarted, kAudio, "5002ffff", "5001", "0801", kAudio}) r.packet(packet);
    EXPECT_EQ(contentOf(r.path), kAudioBytes + "\x50\x01" + kAudioBytes + "er file");
    r.packet("0801001100");
    EXPECT_FALSE(r.routed());
    EXPECT_EQ(r.started.calls, 1);
    EXPECT_FALSE(r.host.helper->recordFileHandle()->isOpen());
  });
}

TEST(LiveRecording, AQueryMeanwhileIsAnsweredByAPacket) {
  record([&](Recording& r) {
    r.start();
    r.packet(kStarted);
    std::uint64_t level = 5;
    testing::Outcome queried(r.scheduler);
    r.host.helper->getPower([&](const MaybeError& error, std::uint64_t given) {
      level = given;
      queried.take(error);
    });
    r.packet(kAudio);
    EXPECT_EQ(queried.calls, 1);
    EXPECT_EQ(queried.text(), "ok");
    EXPECT_EQ(level, 0U);
    r.packet(kAudio);
    EXPECT_EQ(contentOf(r.path), kAudioBytes + kAudioBytes);
    EXPECT_EQ(r.host.peripheral->calls.back(), "off C92A");
  });
}

TEST(LiveRecording, StopEndsTheFileAndWaitsForItsOwnReply) {
  struct Case {
    const char* reply;
    int calls;
  };
  for (const Case& test : std::vector<Case>{
           {"0080010000", 1}, {"0080", 1}, {"0081010000", 0}, {kAudio, 0}, {"0801000100", 0}, {"", 0}}) {
    record([&](Recording& r) {
      r.start();
      r.packet(kStarted);
      const auto file = r.host.helper->recordFileHandle();
      r.host.peripheral->calls.clear();
      r.stop();
      EXPECT_EQ(r.host.helper->cmdType(), KWTCmdTypeStopRecord);
      EXPECT_TRUE(!file->isOpen() && !r.host.helper->recordFileHandle() && !r.routed() && r.pending());
      r.packet(test.reply);
      EXPECT_FALSE(r.pending());
      EXPECT_EQ(r.stopped.calls, test.calls) << test.reply;
      Lines calls{"on 9E07", "write 0081010000"};
      if (test.calls == 1) calls.emplace_back("off 9E07");
      EXPECT_EQ(r.host.peripheral->calls, calls);
      EXPECT_EQ(contentOf(r.path), "");
    });
  }
}

// Packets that wait for the recording queue when the host stops or starts again; the seed decides how far
// they get before.
TEST(LiveRecording, LatePacketsCompleteNoNewerCommand) {
  for (std::uint64_t seed = 1; seed <= 160; ++seed) {
    const bool again = seed % 2 == 0;
    const char* late = std::array{kAudio, "0801001100", "", "1280040000105400"}.at(seed / 2 % 4);
    record(
        [&](Recording& r) {
          r.start();
          r.packet(kStarted);
          r.host.notify(r.host.fileNotify, late);
          testing::Outcome second(r.scheduler);
          if (again) {
            r.host.helper->startRecordWithType(1, r.path, second.completion());
          } else {
            r.host.helper->stopRecord(second.completion());
          }
          r.settle();
          EXPECT_EQ(second.calls, 0) << "seed " << seed << ", packet " << late;
          EXPECT_TRUE(r.pending());
          EXPECT_EQ(r.routed(), again) << "seed " << seed << ", packet " << late;
          EXPECT_NE(r.host.peripheral->calls.back(), "off 9E07");
          r.host.acknowledge(r.host.fileWrite);
          r.packet(again ? kStarted : "0080010000");
          EXPECT_EQ(second.calls, 1);
          EXPECT_EQ(second.text(), "ok");
        },
        seed);
  }
}

TEST(LiveRecording, FailuresReachTheCaller) {
  const Error refused("stack", 7, {});
  record([&](Recording& r) {  // another command is pending
    r.host.helper->getPower(LevelCompletion());
    r.start();
    r.stop();
    EXPECT_EQ(r.startText() + "/" + r.stopped.text(), "1002 已有操作在进行中/1002 已有操作在进行中");
    EXPECT_TRUE(r.pending() && !r.routed() && !fileIsExist(r.path));
    EXPECT_EQ(r.host.log->count("已有操作在进行中"), 2);
  });
  record([&](Recording& r) {  // the dispatcher refuses
    r.host.peripheral->current = PeripheralState::disconnected;
    r.start();
    EXPECT_EQ(r.startText(), "1001 蓝牙断开连接");
    EXPECT_TRUE(r.routed() && r.host.helper->recordFileHandle()->isOpen());
    r.stop();
    EXPECT_EQ(r.stopped.text(), "1001 蓝牙断开连接");
    EXPECT_FALSE(r.routed() || r.pending());
  });
  record([&](Recording& r) {  // the writes fail
    r.host.helper->startRecordWithType(0, r.path, r.started.completion());
    r.host.acknowledge(r.host.fileWrite, refused);
    EXPECT_EQ(r.started.error, refused);
    EXPECT_TRUE(r.routed() && !r.pending());
    r.packet(kAudio);  // the recorder records in spite of it
    EXPECT_EQ(contentOf(r.path), kAudioBytes);
    r.host.helper->stopRecord(r.stopped.completion());
    r.host.acknowledge(r.host.fileWrite, refused);
    EXPECT_EQ(r.stopped.error, refused);
    EXPECT_FALSE(r.routed() || r.pending());
  });
  for (const char* path : {"/dev/full", "/nowhere/recording"}) {  // the audio is lost, the recording is not
    record([&](Recording& r) {
      r.path = path;
      r.start();
      for (const char* packet : {kStarted, kAudio, kAudio}) r.packet(packet);
      EXPECT_EQ(r.startText(), "ok");
      EXPECT_EQ(r.host.log->count("not saved"), 1);
    });
  }
}

// The recorder ends while a host's completion still runs, and a query's answer is routed before the
// tear-down.
TEST(LiveRecording, AQueryAtTheRecordersEndIsAnswered) {
  record([&](Recording& r) {
    testing::Outcome capacity(r.scheduler);
    std::optional<ByteCounts> value;
    r.host.helper->startRecordWithType(0, r.path, [&](const MaybeError&) { r.scheduler.sleep(200ms); });
    r.host.acknowledge(r.host.fileWrite);
    r.packet("0801001100");
    r.host.helper->getPower();  // refused as busy, it clears the slot all the same
    r.host.helper->getCapacity(capacity.completion(value));
    r.host.notify(r.host.statusNotify, "99ec3a00b2");
    r.scheduler.sleep(1s);
    EXPECT_EQ(capacity.calls, 1);
    EXPECT_FALSE(r.pending() || r.routed());
  });
}

// A download that the watchdog gave up still has packets queued; the start is never answered.
TEST(LiveRecording, ADownloadsLatePacketsDoNotCompleteItsStart) {
  testing::onVirtualTime([&](testing::SimHost& host, sim::VirtualTimeScheduler& scheduler) {
    const testing::TemporaryFolder folder;
    host.store->add(testing::recordingOf(500));
    host.setReplies([](const std::string& request, Bytes reply) {
      return request == "0181010000" ? std::nullopt : std::optional(reply);
    });
    bool slow = true;
    host.helper->downloadFirstFlashFile(
        folder.file("d"),
        [&](std::uint64_t, std::uint64_t) {
          if (std::exchange(slow, false)) scheduler.sleep(30s);
        },
        nullptr);
    scheduler.sleep(20s);
    EXPECT_EQ(host.log->count("Timeout!"), 1);
    testing::Outcome started(scheduler);
    host.helper->startRecordWithType(0, folder.file("r"), started.completion());
    scheduler.sleep(15s);
    EXPECT_EQ(started.calls, 0);
    EXPECT_TRUE(host.helper->completionBlock() && host.helper->writeDataBlock());
    EXPECT_EQ(host.store->count(), 1U);
  });
}

TEST(LiveRecording, AnEarlierDownloadsWatchdogDoesNotEndIt) {
  record([&](Recording& r) {
    r.host.helper->startMonitorTimer(nullptr);
    r.start();
    r.packet(kStarted);
    r.scheduler.sleep(20s);
    EXPECT_TRUE(r.routed());
    EXPECT_EQ(r.host.log->count("Timeout!"), 0);
  });
}

class FakeConverter : public OpusConverter {
 public:
  std::int32_t opus2wav(const char* input, const char* output) override {
    return note(std::string("wav ") + input + " " + output);
  }
  std::int32_t opus2mp3(const char* input, const char* output, std::int32_t parameter) override {
    return note(std::string("mp3 ") + input + " " + output + " " + std::to_string(parameter));
  }
  std::int32_t note(const std::string& call) {
    calls.push_back(call);
    if (throws) throw std::runtime_error("broken");
    return status;
  }
  Lines calls;
  std::int32_t status = 0;
  bool throws = false;
};

TEST(Conversion, HandsBothPathsToTheConverter) {
  const auto converter = std::make_shared<FakeConverter>();
  const auto log = std::make_shared<testing::LineLog>();
  const auto helper = KWTBluetoothHelper::create(
      {.scheduler = nullptr, .settings = nullptr, .opusConverter = converter, .log = log});
  const auto decode = [&](std::int64_t type) { return helper->decodeOpusFile("in", "out", type); };
  EXPECT_TRUE(decode(OpusConvertTypeMp3) && decode(OpusConvertTypeWav) && decode(2) && decode(-1));
  EXPECT_EQ(converter->calls, (Lines{"mp3 in out 24", "wav in out", "mp3 in out 24", "mp3 in out 24"}));
  converter->status = 1;
  EXPECT_TRUE(decode(1));
  converter->status = -1;
  EXPECT_FALSE(decode(1) || decode(0));
  converter->throws = true;
  EXPECT_FALSE(decode(1));
  EXPECT_EQ(log->count("broken"), 1);
}

}  // namespace
}  // namespace kwtsdk
