#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

constexpr char kStarted[] = "1280040000005400", kAudio[] = "50010200abcd";
const std::string kAudioBytes = "\x50\x01\x02" + std::string("\0\xab\xcd", 3);

/// A host on virtual time whose device the test plays.
struct Recording {
  explicit Recording(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : scheduler(*virtualTime), host(virtualTime), started(scheduler), stopped(scheduler) {}

  void start(std::int64_t type = 0, const MaybeError& acknowledged = std::nullopt) {
    host.helper->startRecordWithType(type, path, started.completion());
    host.acknowledge(host.fileWrite, acknowledged);
  }
  void stop(const MaybeError& acknowledged = std::nullopt) {
    host.helper->stopRecord(stopped.completion());
    host.acknowledge(host.fileWrite, acknowledged);
  }
  void packet(const std::string& hex) {
    host.notify(host.fileNotify, hex);
    scheduler.sleep(1ms);
  }
  bool open() const { return host.helper->recordFileHandle() && host.helper->recordFileHandle()->isOpen(); }
  bool routed() const { return host.helper->writeDataBlock() != nullptr; }
  bool pending() const { return host.helper->completionBlock() != nullptr; }

  VirtualTimeScheduler& scheduler;
  TemporaryFolder folder;
  std::string path = folder.file("recording");
  FakeHost host;
  Outcome started, stopped;
};

TEST(LiveRecording, EveryTypeSendsItsFrame) {
  const Lines frames{"0181010000", "0281010000", "0381010000", "0481010000", "0081010000"};
  for (std::size_t type = 0; type < frames.size(); ++type) {
    play<Recording>([&](auto& r) {
      r.start(static_cast<std::int64_t>(type));
      EXPECT_EQ(r.host.peripheral->calls, (Lines{"on 9E07", "write " + frames[type]}));
      EXPECT_EQ(r.host.helper->cmdType(), KWTCmdTypeStartRecord);
      EXPECT_TRUE(r.routed() && r.pending() && r.open());
    });
  }
  for (const std::int64_t type : {std::int64_t{5}, std::int64_t{-1}, INT64_MAX, INT64_MIN}) {
    play<Recording>([&](auto& r) {
      r.start(type);
      EXPECT_EQ(r.started.text(), "1003 录音类型输入错误");
      EXPECT_TRUE(r.host.peripheral->calls.empty() && !fileIsExist(r.path) && r.host.log->lines().empty());
    });
  }
}

// Whatever comes first completes the start; what it is decides whether the recording goes on.
TEST(LiveRecording, TheFirstPacketDecides) {
  const std::tuple<Lines, const char*, bool> cases[]{
      {{kStarted, "1280040000015400", "1280040000045400", kAudio, "ffff", "08010001"}, "ok", true},
      {{"1280040000105400", "1280040000115400", ""}, "1004 启动录音失败", false},
      {{"0801000100", "0801001100", "0801002100"}, "ok", false}};
  for (const auto& test : cases) {
    for (const std::string& packet : std::get<0>(test)) {
      play<Recording>([&](auto& r) {
        const auto& [packets, outcome, goesOn] = test;
        r.start();
        EXPECT_EQ(r.started.calls, 0);
        r.packet(packet);
        EXPECT_EQ(r.started.text(), outcome) << packet;
        EXPECT_FALSE(r.pending());
        EXPECT_TRUE(r.routed() == goesOn && r.open() == goesOn) << packet;
        EXPECT_EQ(r.host.peripheral->calls.back(), goesOn ? "write 0181010000" : "off 9E07");
        const std::string first = packet == kAudio ? kAudioBytes : "";
        EXPECT_EQ(contentOf(r.path), first);
        r.packet(kAudio);
        EXPECT_EQ(contentOf(r.path), first + (goesOn ? kAudioBytes : ""));
        EXPECT_EQ(r.started.calls, 1);
      });
    }
  }
}

TEST(LiveRecording, AudioIsWrittenAsItCameOverTheOldFile) {
  play<Recording>([&](auto& r) {
    writeFile(r.path, "an older, longer file");
    r.start();
    for (const char* packet : {kStarted, kAudio, "5002ffff", "5001", "0801", kAudio}) r.packet(packet);
    EXPECT_EQ(contentOf(r.path), kAudioBytes + "\x50\x01" + kAudioBytes + "er file");
    Lines answers;  // a query meanwhile is answered by a packet, which is written too
    r.host.helper->getPower([&](const MaybeError& error, std::uint64_t level) {
      answers.push_back((error ? "error " : "ok ") + std::to_string(level));
    });
    r.packet(kAudio);
    EXPECT_EQ(answers, Lines{"ok 0"});
    EXPECT_EQ(r.host.peripheral->calls.back(), "off C92A");
    EXPECT_EQ(contentOf(r.path), kAudioBytes + "\x50\x01" + kAudioBytes + kAudioBytes + "e");
    r.packet("0801001100");
    EXPECT_FALSE(r.routed() || r.open());
    EXPECT_EQ(r.started.calls, 1);
  });
}

TEST(LiveRecording, StopEndsTheFileAndWaitsForItsOwnReply) {
  for (const std::string reply : {"0080010000", "0080", "0081010000", kAudio, "0801000100", ""}) {
    play<Recording>([&](auto& r) {
      r.start();
      r.packet(kStarted);
      const auto file = r.host.helper->recordFileHandle();
      r.host.peripheral->calls.clear();
      r.stop();
      EXPECT_EQ(r.host.helper->cmdType(), KWTCmdTypeStopRecord);
      EXPECT_TRUE(!file->isOpen() && !r.host.helper->recordFileHandle() && !r.routed() && r.pending());
      r.packet(reply);
      EXPECT_FALSE(r.pending());
      Lines calls{"on 9E07", "write 0081010000"};
      if (reply.starts_with("0080")) calls.emplace_back("off 9E07");
      EXPECT_EQ(r.host.peripheral->calls, calls);
      EXPECT_EQ(r.stopped.calls, reply.starts_with("0080") ? 1 : 0) << reply;
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
    const auto body = [&](Recording& r) {
      r.start();
      r.packet(kStarted);
      r.host.notify(r.host.fileNotify, late);
      Outcome& second = again ? r.started : r.stopped;
      second.calls = 0;
      if (again) {
        r.host.helper->startRecordWithType(1, r.path, second.completion());
      } else {
        r.host.helper->stopRecord(second.completion());
      }
      r.scheduler.sleep(1ms);
      EXPECT_EQ(second.calls, 0) << "seed " << seed << ", packet " << late;
      EXPECT_TRUE(r.pending());
      EXPECT_EQ(r.routed(), again) << "seed " << seed << ", packet " << late;
      EXPECT_NE(r.host.peripheral->calls.back(), "off 9E07");
      r.host.acknowledge(r.host.fileWrite);
      r.packet(again ? kStarted : "0080010000");
      EXPECT_EQ(second.text() + std::to_string(second.calls), "ok1");
    };
    play<Recording>(body, seed);
  }
}

TEST(LiveRecording, AnErrorMakesNoAnswerToAStop) {
  play<Recording>([&](auto& r) {
    r.start();
    r.packet(kStarted);
    r.stop();
    r.host.notify(r.host.fileNotify, "0081", Error("stack", 7, {}));
    EXPECT_EQ(r.stopped.calls, 0);
    EXPECT_FALSE(r.pending());
  });
}

TEST(LiveRecording, FailuresReachTheCaller) {
  play<Recording>([&](auto& r) {  // another command is pending
    r.host.helper->getPower(LevelCompletion());
    r.start();
    r.stop();
    EXPECT_EQ(r.started.text() + r.stopped.text(), "1002 已有操作在进行中1002 已有操作在进行中");
    EXPECT_TRUE(r.pending() && !r.routed() && !fileIsExist(r.path));
    EXPECT_EQ(r.host.log->count("已有操作在进行中"), 2);
  });
  play<Recording>([&](auto& r) {  // the dispatcher refuses
    r.host.peripheral->current = PeripheralState::disconnected;
    r.start();
    EXPECT_TRUE(r.routed() && r.open());
    r.stop();
    EXPECT_EQ(r.started.text() + r.stopped.text(), "1001 蓝牙断开连接1001 蓝牙断开连接");
    EXPECT_FALSE(r.routed() || r.pending());
  });
  play<Recording>([&](auto& r) {  // the writes fail
    const Error refused("stack", 7, {});
    r.start(0, refused);
    EXPECT_TRUE(r.routed() && !r.pending());
    r.packet(kAudio);  // the recorder records in spite of it
    EXPECT_EQ(contentOf(r.path), kAudioBytes);
    r.stop(refused);
    EXPECT_TRUE(r.started.error == refused && r.stopped.error == refused);
    EXPECT_FALSE(r.routed() || r.pending());
  });
  for (const char* path : {"/dev/full", "/nowhere/recording"}) {  // the audio is lost, the recording is not
    play<Recording>([&](auto& r) {
      r.path = path;
      r.start();
      for (const char* packet : {kStarted, kAudio, kAudio}) r.packet(packet);
      EXPECT_EQ(r.started.ended(), "ok");
      EXPECT_EQ(r.host.log->count("not saved"), 1);
    });
  }
}

// The recorder ends while a host's completion still runs, and a query's answer is routed before the
// tear-down.
TEST(LiveRecording, AQueryAtTheRecordersEndIsAnswered) {
  play<Recording>([&](auto& r) {
    Outcome capacity(r.scheduler);
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
  onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
    const TemporaryFolder folder;
    host.store->add(recordingOf(500));
    host.setReplies([](const std::string& request, Bytes reply) {
      return request == "0181010000" ? std::nullopt : std::optional(reply);
    });
    bool slow = true;
    const auto hold = [&](std::uint64_t, std::uint64_t) {
      if (std::exchange(slow, false)) scheduler.sleep(30s);
    };
    host.helper->downloadFirstFlashFile(folder.file("d"), hold, nullptr);
    scheduler.sleep(20s);
    EXPECT_EQ(host.log->count("Timeout!"), 1);
    host.helper->startRecordWithType(0, folder.file("r"), host.outcome.completion());
    scheduler.sleep(15s);
    EXPECT_EQ(host.outcome.calls, 0);
    EXPECT_TRUE(host.helper->completionBlock() && host.helper->writeDataBlock());
    EXPECT_EQ(host.store->count(), 1U);
  });
}

TEST(LiveRecording, AnEarlierDownloadsWatchdogGoesOn) {
  play<Recording>([&](auto& r) {
    r.host.helper->startMonitorTimer(nullptr);
    r.start();
    r.packet(kStarted);
    r.scheduler.sleep(4s);
    EXPECT_TRUE(r.routed());  // a packet is data
    r.scheduler.sleep(4s);
    EXPECT_FALSE(r.routed());
    EXPECT_EQ(r.host.log->count("Timeout!"), 1);
  });
}

TEST(LiveRecording, TheRecordersEndSwitchesNotificationsOffAndClearsTheField) {
  play<Recording>([&](auto& r) {
    r.start();
    r.packet(kStarted);
    r.host.helper->setWriteDataBlock([inner = r.host.helper->writeDataBlock()](const auto&... packet) {
      inner(packet...);  // a host that watches
    });
    r.host.helper->getFileNumAndFirstId(ValueCompletion<FlashInfo>());
    r.host.helper->setCompletionBlock(nullptr);  // the host gives its query up, which counts no more
    r.packet("0801001100");
    EXPECT_EQ(r.host.peripheral->calls.back(), "off 9E07");
    EXPECT_FALSE(r.routed() || r.open());
  });
}

TEST(LiveRecording, WhatComesBeforeTheCommandIsWrittenCounts) {
  play<Recording>([&](auto& r) {
    r.host.helper->setCmdType(KWTCmdTypeStartRecord);
    r.host.peripheral->onSetNotify = [&](bool enabled) {
      if (enabled) r.host.notify(r.host.fileNotify, kAudio);
    };
    r.start();
    r.scheduler.sleep(1ms);
    EXPECT_EQ(r.started.text() + std::to_string(r.started.calls), "ok1");
    EXPECT_EQ(contentOf(r.path), kAudioBytes);
  });
}

struct FakeConverter : OpusConverter {
  std::int32_t opus2wav(const char* input, const char* output) override {
    return note(std::string("wav ") + input + " " + output);
  }
  std::int32_t opus2mp3(const char* input, const char* output, std::int32_t parameter) override {
    return note(std::string("mp3 ") + input + " " + output + " " + std::to_string(parameter));
  }
  std::int32_t note(const std::string& call) {
    calls.push_back(call);
    if (status == 7) throw std::runtime_error("broken");
    return status;
  }
  Lines calls;
  std::int32_t status = 0;
};

TEST(Conversion, HandsBothPathsToTheConverter) {
  const auto converter = std::make_shared<FakeConverter>();
  const auto log = std::make_shared<LineLog>();
  const auto helper = KWTBluetoothHelper::create({nullptr, nullptr, converter, log});
  const auto decode = [&](std::int64_t type) { return helper->decodeOpusFile("in", "out", type); };
  EXPECT_TRUE(decode(OpusConvertTypeMp3) && decode(OpusConvertTypeWav) && decode(2) && decode(-1));
  EXPECT_EQ(converter->calls, (Lines{"mp3 in out 24", "wav in out", "mp3 in out 24", "mp3 in out 24"}));
  converter->status = 1;
  EXPECT_TRUE(decode(1));
  converter->status = -1;
  EXPECT_FALSE(decode(1) || decode(0));
  converter->status = 7;
  EXPECT_FALSE(decode(1));
  EXPECT_EQ(log->count("broken"), 1);
}

}  // namespace
}  // namespace kwtsdk
