#include <gtest/gtest.h>

#include "tests/support/facade_operations.h"
#include "tests/support/failing_sync.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::testing {
namespace {

constexpr std::uint64_t kBlock = 32768, kPacket = wire::kDownloadDataSize;

// What a download of one padded recording leaves: the stored bytes, then the last packet's filler.
std::string stored(const Bytes& recording, std::size_t blocks) {
  std::string content = text(recording);
  content.resize(blocks * kBlock, '\0');
  return content;
}

/// A host that downloads the first file.
struct Download : VirtualHost {
  using VirtualHost::VirtualHost;

  void start() {
    const auto note = [this](std::uint64_t done, std::uint64_t total) {
      EXPECT_GE(done, last.first);
      last = {done, total};
      ++progresses;
      if (onProgress) onProgress();
    };
    helper->downloadFirstFlashFile(path, note, outcome.completion());
  }
  /// What it ended with, once; the deletion follows that.
  std::string ended() {
    start();
    std::string text = outcome.ended();
    scheduler.sleep(20s);
    EXPECT_EQ(outcome.calls, 1);
    return text;
  }
  bool pending() const { return helper->completionBlock() || helper->writeDataBlock(); }
  std::string content() const { return contentOf(path); }

  TemporaryFolder folder;
  std::string path = folder.file("f");
  std::pair<std::uint64_t, std::uint64_t> last;
  int progresses = 0;
  std::function<void()> onProgress;
};

TEST(Download, BringsTheFirstFileAndDeletesItThere) {
  play<Download>([](auto& d) {
    const Bytes recording = recordingOf(40000);
    d.store->add(recording);
    d.store->add(recordingOf(5, 2));
    EXPECT_EQ(d.ended(), "ok");
    EXPECT_EQ(d.last, (std::pair{2 * kBlock, 2 * kBlock}));
    EXPECT_EQ(d.content().substr(0, 2 * kBlock), stored(recording, 2));
    const std::uint64_t packets = (2 * kBlock + kPacket - 1) / kPacket;
    EXPECT_EQ(d.content().size(), packets * kPacket);
    EXPECT_EQ(d.progresses, static_cast<int>(packets) + 1);
    EXPECT_EQ(d.commands(), (Lines{"99ec", "0182", "0282", "0382", "1382", "0482"}));
    EXPECT_EQ(d.requests.at(3), "03820c00000000000a0000000000000022f48e6a");
    EXPECT_EQ(d.store->count(), 1U);
    EXPECT_EQ(d.log->count("Delete fileId(10) error:(null)"), 1);
    EXPECT_FALSE(d.pending());
    EXPECT_EQ(d.log->count("Timeout!"), 1) << "the watchdog stays until its next check without data";
  });
}

TEST(Download, SaysOnceWhyItFailed) {
  const std::tuple<std::string, std::size_t, std::size_t, const char*> cases[]{
      {"none", 0, 0, "1005 文件ID获取失败"},  // the command whose reply is spoilt
      {"0182", 1, 0, "1005 文件ID获取失败"},
      {"0282", 1, 0, "1006 获取文件信息失败"},
      {"none", 1, kBlock + 1, "1007 已下载文件长度大于待下载文件总长度"},
      {"refused", 1, 0, "3 "},  // by the radio
      {"lost", 1, 0, "1001 蓝牙断开连接"}};
  playEach<Download>(cases, [](auto& d, auto& spoilt, auto recordings, auto have, auto outcome) {
    if (recordings != 0) d.store->add(recordingOf(5));
    if (have != 0) writeFile(d.path, std::string(have, 'x'));
    if (spoilt == "refused") d.faults.add(sim::LinkEvent::acknowledgement, 4, {.fault = sim::Fault::refuse});
    d.setReplies([&](const std::string& request, Bytes reply) {
      if (spoilt == "lost" && request.starts_with("0282")) d.helper->setConnectedPeripheral(nullptr);
      return request.starts_with(spoilt) ? Bytes{0} : reply;
    });
    EXPECT_TRUE(d.ended().starts_with(outcome)) << d.outcome.text();
    EXPECT_EQ(d.outcome.error->domain(), spoilt == "refused" ? "kwt.sim.link" : "com.kwt.sdk");
    EXPECT_EQ(fileIsExist(d.path), have != 0 || spoilt == "refused" || spoilt == "lost");
    // The recorder saw a refused request and sent its packets: they must not end in a deletion.
    EXPECT_EQ(d.store->count(), recordings);
    EXPECT_FALSE(d.helper->writeDataBlock());
    EXPECT_EQ(d.content().size(), have);
    EXPECT_EQ(d.progresses, 0) << "of what has failed";
  });
}

TEST(Download, ThatStallsEndsSilentlyAndContinuesLater) {
  // The packet that is delayed, and how long.
  const std::tuple<std::uint64_t, Duration, bool> cases[]{
      {4, 900ms, false}, {4, 1200ms, true}, {100, 4900ms, false}, {100, 11s, true}};
  playEach<Download>(cases, [](auto& d, auto packet, auto delay, bool stalls) {
    d.faults.add(sim::LinkEvent::notification, packet, {.fault = sim::Fault::delay, .delay = delay});
    const Bytes recording = recordingOf(20000);
    d.store->add(recording);
    d.start();
    EXPECT_NE(d.outcome.wait(15s), stalls) << packet;
    EXPECT_EQ(d.log->count("Timeout!"), stalls ? 1 : 0);
    if (!stalls) return;
    EXPECT_FALSE(d.pending());
    EXPECT_EQ(d.content().size(), (packet - 4) * kPacket);
    d.link->disconnect();  // what the recorder still sends would be taken for an answer
    d.link->connect();
    d.last = {};
    EXPECT_EQ(d.ended(), "ok");
    EXPECT_EQ(d.content().substr(0, kBlock), stored(recording, 1));
  });
}

TEST(Download, LeavesARecordingAloneThatBeganWithItsLastPacket) {
  play<Download>([](auto& d) {
    d.store->add(recordingOf(5));
    Outcome recording(d.scheduler);
    d.onProgress = [&] {
      if (d.last.first < kBlock || d.progresses > 1 + static_cast<int>(kBlock / kPacket)) return;
      d.helper->setCompletionBlock(nullptr);
      d.helper->startRecordWithType(0, d.folder.file("r"), recording.completion());
    };
    d.start();
    EXPECT_EQ(recording.ended(), "ok");
    EXPECT_EQ(d.progresses, 1 + static_cast<int>(kBlock / kPacket));
    EXPECT_TRUE(d.outcome.calls == 0 && d.store->count() == 1 && d.helper->writeDataBlock());
  });
}

TEST(Download, WhatCouldNotBeSavedStaysOnTheRecorder) {
  playEach<Download>(std::array{"/dev/full", "/nowhere/f", "unsynced", "folder unsynced"},
                     [](auto& d, auto path) {
                       std::optional<FailingSync> failing;
                       d.store->add(recordingOf(5));
                       d.path = *path == '/' ? path : d.folder.file(path);
                       using Of = FailingSync::Of;
                       if (*path != '/') failing.emplace(*path == 'f' ? Of::folders : Of::everything);
                       EXPECT_EQ(d.ended(), "ok");
                       EXPECT_EQ(d.last.first, kBlock);
                       EXPECT_EQ(d.store->count(), 1U);
                       EXPECT_EQ(d.log->count("Cannot "), 1);
                     });
}

Bytes hex(const char* text) { return internal::toData(text); }

// Each operation's outcome when the reply is another's, without a connection, and while a command is pending.
TEST(Operations, WhatEachFailureReports) {
  const std::string lost = "1001 蓝牙断开连接", busy = "1002 已有操作在进行中", none = "1005 文件ID获取失败";
  const auto no = [](const std::string& error) { return error + " none"; };
  const std::pair<std::string, Lines> cases[]{
      {"ok",
       {"ok 0", "ok ", "ok none", no(none), "ok none", no(none), none + " ", "ok 0102030405060708", "ok none",
        "ok "}},
      {lost,
       {"ok 0", "ok ", no(lost), no(none), no(lost), no(none), none + " ", no(lost), no(lost), lost + " "}},
      {busy,
       {busy + " 0", no(busy), no(busy), no(busy), no(busy), no(busy), busy + " ", no(busy), no(busy),
        busy + " "}}};
  playEach<VirtualHost>(cases, [&](auto& host, auto& state, auto& expected) {
    KWTBluetoothHelper& helper = *host.helper;
    host.setReplies([](const auto&, const auto&) { return hex("0102030405060708"); });
    if (state == lost) host.link->disconnect();
    Lines outcomes;
    const AnyCompletion note{[&](const MaybeError& error, const std::string& value) {
      outcomes.push_back(shown(error) + " " + value);
    }};
    for (std::size_t i = 0; i < expected.size(); ++i) {
      if (state == busy) helper.setCompletionBlock([](const MaybeError&, const auto&) {});
      completionForms().at(i).begin(helper, note, "/nowhere", 1);
      host.scheduler.sleep(100ms);
    }
    EXPECT_EQ(outcomes, expected);
    EXPECT_EQ(host.requests.empty(), state != "ok");
  });
}

TEST(Deletion, TheRecordersResultIsTheErrorsCode) {
  const std::pair<const char*, const char*> cases[]{
      {"048208000000000007000000", "ok 0,7"},
      {"048208000100000007000000", "1 删除失败，ID非系统第一个文件 1,7"},
      {"048208000200000007000000", "2 删除失败，文件ID不存在 2,7"},
      {"048208000300000007000000", "3 删除失败，文件正在使用中 3,7"},
      {"048208000400000007000000", "4 删除失败，文件系统为空 4,7"},
      {"048208000700000007000000", "7 error! 7,7"},
      {"0482080004000000", "4 删除失败，文件系统为空 4,0"}};
  playEach<VirtualHost>(cases, [](auto& host, auto reply, auto outcome) {
    host.setReplies([&](const auto&, const auto&) { return hex(reply); });
    host.helper->deleteFile(1, host.outcome.completion());
    EXPECT_EQ(host.outcome.ended() + " " + host.outcome.value, outcome);
  });
}

// One exchange and one pause a file; what does not answer is left out.
TEST(Listing, AsksForEachFile) {
  playEach<VirtualHost>(std::array{0U, 10U, 100U, 1000U, 4U}, [](auto& host, std::size_t count) {
    Lines types, expected;
    for (std::size_t i = 0; i < count; ++i) {
      host.store->add(Bytes{1}, {}, static_cast<std::uint8_t>(i));
      if (count != 4 || (i != 1 && i != 2)) expected.push_back(shown(i % 256));
    }
    host.setReplies([&](const std::string& request, Bytes reply) -> std::optional<Bytes> {
      if (count == 4 && request.starts_with("028204000b")) return std::nullopt;
      return count == 4 && request.starts_with("028204000c") ? Bytes{2} : reply;
    });
    std::optional<std::vector<KWTFileHeader>> headers;
    host.helper->getFlashFileList(host.outcome.completion(headers));
    ASSERT_EQ(host.outcome.ended(), "ok");
    for (const auto& header : *headers) types.push_back(shown(header.recordType()));
    EXPECT_EQ(types, expected);
    EXPECT_EQ(host.requests.size(), count + 2);
    EXPECT_EQ(host.scheduler.now(), (count == 4 ? 5s : 0s) + 3ms * static_cast<int>(count));
  });
}

}  // namespace
}  // namespace kwtsdk::testing
