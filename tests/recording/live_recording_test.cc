#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

constexpr char kStarted[] = "1280040000005400", kAudio[] = "50010200abcd", kEnded[] = "0801001100";
const std::string kAudioBytes = "\x50\x01\x02" + std::string("\0\xab\xcd", 3);

/// A host on virtual time whose device the test plays.
struct Recording : FakeHost {
  explicit Recording(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : FakeHost(virtualTime), scheduler(*virtualTime), started(scheduler), stopped(scheduler) {}

  void start(std::int64_t type = 0, const MaybeError& acknowledged = std::nullopt) {
    helper->startRecordWithType(type, path, started.completion());
    acknowledge(fileWrite, acknowledged);
  }
  void stop(const MaybeError& acknowledged = std::nullopt) {
    helper->stopRecord(stopped.completion());
    acknowledge(fileWrite, acknowledged);
  }
  void packet(const std::string& hex, const MaybeError& error = std::nullopt) {
    notify(fileNotify, hex, error);
    scheduler.sleep(1ms);
  }
  bool open() const { return helper->recordFileHandle() && helper->recordFileHandle()->isOpen(); }
  bool routed() const { return helper->writeDataBlock() != nullptr; }
  bool pending() const { return helper->completionBlock() != nullptr; }
  std::string lastCall() const { return peripheral->calls.back(); }

  VirtualTimeScheduler& scheduler;
  TemporaryFolder folder;
  std::string path = folder.file("recording");
  Outcome started, stopped;
};

TEST(LiveRecording, EveryTypeSendsItsFrame) {
  const Lines frames{"0181010000", "0281010000", "0381010000", "0481010000", "0081010000"};
  playEach<Recording>(
      std::array{INT64_MIN, -1L, 0L, 1L, 2L, 3L, 4L, 5L, INT64_MAX}, [&](auto& r, std::int64_t type) {
        r.start(type);
        const bool known = type >= 0 && type < 5;
        EXPECT_EQ(r.started.text(), known ? "ok" : "1003 录音类型输入错误");
        EXPECT_EQ(r.peripheral->calls,
                  known ? (Lines{"on 9E07", "write " + frames.at(static_cast<std::size_t>(type))}) : Lines());
        EXPECT_EQ(r.helper->cmdType(), known ? KWTCmdTypeStartRecord : KWTCmdTypeNone);
        EXPECT_TRUE(r.routed() == known && r.pending() == known && r.open() == known);
        EXPECT_TRUE(fileIsExist(r.path) == known && r.log->lines().empty());
      });
}

// Whatever comes first completes the start; what it is decides whether the recording goes on.
TEST(LiveRecording, TheFirstPacketDecides) {
  const std::tuple<Lines, const char*, bool> cases[]{
      {{kStarted, "1280040000015400", "1280040000045400", kAudio, "ffff", "08010001"}, "ok", true},
      {{"1280040000105400", "1280040000115400", ""}, "1004 启动录音失败", false},
      {{"0801000100", kEnded, "0801002100"}, "ok", false}};
  for (const auto& test : cases) {
    playEach<Recording>(std::get<0>(test), [&](auto& r, auto& packet) {
      const auto& [packets, outcome, goesOn] = test;
      r.start();
      EXPECT_EQ(r.started.calls, 0);
      r.packet(packet);
      EXPECT_EQ(r.started.text(), outcome) << packet;
      EXPECT_TRUE(!r.pending() && r.routed() == goesOn && r.open() == goesOn) << packet;
      EXPECT_EQ(r.lastCall(), goesOn ? "write 0181010000" : "off 9E07");
      const std::string first = packet == kAudio ? kAudioBytes : "";
      EXPECT_EQ(contentOf(r.path), first);
      r.packet(kAudio);
      EXPECT_EQ(contentOf(r.path), first + (goesOn ? kAudioBytes : ""));
      EXPECT_EQ(r.started.calls, 1);
    });
  }
  play<Recording>([](auto& r) {  // it may come before the command is written
    r.helper->setCmdType(KWTCmdTypeStartRecord);
    r.peripheral->onSetNotify = [&](bool enabled) {
      if (enabled) r.notify(r.fileNotify, kAudio);
    };
    r.start();
    r.scheduler.sleep(1ms);
    EXPECT_EQ(r.started.text() + shown(r.started.calls), "ok1");
    EXPECT_EQ(contentOf(r.path), kAudioBytes);
  });
}

TEST(LiveRecording, AudioIsWrittenAsItCameOverTheOldFile) {
  play<Recording>([](auto& r) {
    writeFile(r.path, "an older, longer file");
    r.start();
    for (const char* packet : {kStarted, kAudio, "5002ffff", "5001", "0801", kAudio}) r.packet(packet);
    EXPECT_EQ(contentOf(r.path), kAudioBytes + "\x50\x01" + kAudioBytes + "er file");
    Lines answers;  // a query meanwhile is answered by a packet, which is written too
    r.helper->getPower(into(answers));
    r.packet(kAudio);
    EXPECT_EQ(answers, Lines{"ok 0"});
    EXPECT_EQ(r.lastCall(), "off C92A");
    EXPECT_EQ(contentOf(r.path), kAudioBytes + "\x50\x01" + kAudioBytes + kAudioBytes + "e");
    r.packet(kEnded);
    EXPECT_FALSE(r.routed() || r.open());
    EXPECT_EQ(r.started.calls, 1);
  });
}

TEST(LiveRecording, StopEndsTheFileAndWaitsForItsOwnReply) {
  const Error broken("stack", 7, {});
  const std::tuple<std::string, MaybeError, bool> cases[]{
      {"0080010000", {}, true},  {"0080", {}, true}, {"0081010000", {}, false}, {kAudio, {}, false},
      {"0801000100", {}, false}, {"", {}, false},    {"0081", broken, false}};
  playEach<Recording>(cases, [](auto& r, auto& reply, auto& error, bool stops) {
    r.start();
    r.packet(kStarted);
    const auto file = r.helper->recordFileHandle();
    r.peripheral->calls.clear();
    r.stop();
    EXPECT_EQ(r.helper->cmdType(), KWTCmdTypeStopRecord);
    EXPECT_TRUE(!file->isOpen() && !r.helper->recordFileHandle() && !r.routed() && r.pending());
    r.packet(reply, error);
    EXPECT_FALSE(r.pending());
    Lines calls{"on 9E07", "write 0081010000"};
    if (stops) calls.emplace_back("off 9E07");
    EXPECT_EQ(r.peripheral->calls, calls);
    EXPECT_EQ(r.stopped.calls, stops ? 1 : 0) << reply;
    EXPECT_EQ(contentOf(r.path), "");
  });
}

// Packets that wait for the recording queue when the host stops or starts again; the seed decides how far
// they get before.
TEST(LiveRecording, LatePacketsCompleteNoNewerCommand) {
  playSeeds<Recording>(160, [](Recording& r, auto seed) {
    const bool again = seed % 2 == 0;
    const char* late = std::array{kAudio, kEnded, "", "1280040000105400"}.at(seed / 2 % 4);
    r.start();
    r.packet(kStarted);
    r.notify(r.fileNotify, late);
    Outcome& second = again ? r.started : r.stopped;
    second.calls = 0;
    if (again) r.helper->startRecordWithType(1, r.path, second.completion());
    if (!again) r.helper->stopRecord(second.completion());
    r.scheduler.sleep(1ms);
    EXPECT_TRUE(second.calls == 0 && r.pending()) << "seed " << seed << ", packet " << late;
    EXPECT_EQ(r.routed(), again) << "seed " << seed << ", packet " << late;
    EXPECT_NE(r.lastCall(), "off 9E07");
    r.acknowledge(r.fileWrite);
    r.packet(again ? kStarted : "0080010000");
    EXPECT_EQ(second.text() + shown(second.calls), "ok1");
  });
}

TEST(LiveRecording, FailuresReachTheCaller) {
  for (const bool busy : {true, false}) {  // or there is no connection
    play<Recording>([&](auto& r) {
      if (busy) r.helper->getPower(LevelCompletion());
      if (!busy) r.peripheral->current = PeripheralState::disconnected;
      const std::string outcome = busy ? "1002 已有操作在进行中" : "1001 蓝牙断开连接";
      r.start();
      EXPECT_TRUE(r.routed() != busy && r.open() != busy && fileIsExist(r.path) != busy);
      r.stop();
      EXPECT_EQ(r.started.text() + r.stopped.text(), outcome + outcome);
      EXPECT_TRUE(r.pending() == busy && !r.routed());
      EXPECT_EQ(r.log->count("已有操作在进行中"), busy ? 2 : 0);
    });
  }
  play<Recording>([](auto& r) {  // the writes fail
    const Error refused("stack", 7, {});
    r.start(0, refused);
    EXPECT_TRUE(r.routed() && !r.pending());
    r.packet(kAudio);  // the recorder records in spite of it
    EXPECT_EQ(contentOf(r.path), kAudioBytes);
    r.stop(refused);
    EXPECT_TRUE(r.started.error == refused && r.stopped.error == refused);
    EXPECT_FALSE(r.routed() || r.pending());
  });
  // The audio is lost, the recording is not.
  playEach<Recording>(std::array{"/dev/full", "/nowhere/recording"}, [](auto& r, auto path) {
    r.path = path;
    r.start();
    for (const char* packet : {kStarted, kAudio, kAudio}) r.packet(packet);
    EXPECT_EQ(r.started.ended(), "ok");
    EXPECT_EQ(r.log->count("not saved"), 1);
  });
}

TEST(LiveRecording, TheRecordersEndClearsTheFieldAndSwitchesNotificationsOff) {
  play<Recording>([](auto& r) {
    r.start();
    r.packet(kStarted);
    r.helper->setWriteDataBlock(wrapped(r.helper->writeDataBlock(), [] {}));  // a host that watches
    r.helper->getFileNumAndFirstId(ValueCompletion<FlashInfo>());
    const auto kept = r.helper->completionBlock();
    r.helper->setCompletionBlock(nullptr);  // the host gives its query up, which counts no more
    r.packet(kEnded);
    EXPECT_EQ(r.lastCall(), "off 9E07");
    EXPECT_FALSE(r.routed() || r.open());
  });
}

TEST(LiveRecording, AnEarlierDownloadsWatchdogGoesOn) {
  play<Recording>([](auto& r) {
    r.helper->startMonitorTimer(nullptr);
    r.start();
    r.packet(kStarted);
    for (const bool routed : {true, false}) {  // the packet is data
      r.scheduler.sleep(4s);
      EXPECT_EQ(r.routed(), routed);
      EXPECT_EQ(r.log->count("Timeout!"), routed ? 0 : 1);
    }
  });
}

struct FakeConverter : OpusConverter {
  std::int32_t opus2wav(const char* input, const char* output) override { return note("wav", input, output); }
  std::int32_t opus2mp3(const char* input, const char* output, std::int32_t parameter) override {
    return note("mp3 " + std::to_string(parameter), input, output);
  }
  std::int32_t note(const std::string& kind, const std::string& input, const std::string& output) {
    call = kind + " " + input + " " + output;
    return status == 7 ? throw std::runtime_error("broken") : status;
  }
  std::string call;
  std::int32_t status = 0;
};

TEST(Conversion, HandsBothPathsToTheConverter) {
  const auto converter = std::make_shared<FakeConverter>();
  const auto log = std::make_shared<LineLog>();
  const auto helper = KWTBluetoothHelper::create({nullptr, nullptr, converter, log});
  const std::string mp3 = "mp3 24 in out", wav = "wav in out";
  const std::tuple<int, std::int64_t, std::string, bool> cases[]{{0, OpusConvertTypeMp3, mp3, true},
                                                                 {0, 2, mp3, true},
                                                                 {1, OpusConvertTypeWav, wav, true},
                                                                 {-1, OpusConvertTypeMp3, mp3, false},
                                                                 {7, OpusConvertTypeWav, wav, false}};
  for (const auto& [status, type, call, converts] : cases) {
    converter->status = status;
    EXPECT_EQ(helper->decodeOpusFile("in", "out", type), converts);
    EXPECT_EQ(converter->call, call);
  }
  EXPECT_EQ(log->count("broken"), 1);
}

}  // namespace
}  // namespace kwtsdk::testing
