#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using sim::VirtualTimeScheduler;
using testing::contentOf;
using testing::onVirtualTime;
using testing::Outcome;
using testing::recordingOf;
using testing::SimHost;
using Lines = std::vector<std::string>;

constexpr std::uint64_t kBlock = 32768;

// What a download of one padded recording leaves: the stored bytes, then the last packet's filler.
std::string stored(const Bytes& recording, std::size_t blocks) {
  std::string content(recording.begin(), recording.end());
  content.resize(blocks * kBlock, '\0');
  return content;
}

struct Download {
  explicit Download(Scheduler& scheduler) : outcome(scheduler) {}

  void start(SimHost& host, const std::string& path) {
    host.helper->downloadFirstFlashFile(
        path,
        [this](std::uint64_t done, std::uint64_t total) {
          EXPECT_GE(done, last.first);
          last = {done, total};
          ++calls;
        },
        outcome.completion());
  }

  Outcome outcome;
  std::pair<std::uint64_t, std::uint64_t> last;
  int calls = 0;
};

TEST(Download, BringsTheFirstFileAndDeletesItThere) {
  const testing::TemporaryFolder folder;
  onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
    const Bytes recording = recordingOf(40000);
    host.store->add(recording);
    host.store->add(recordingOf(5, 2));
    Download download(scheduler);
    download.start(host, folder.file("f"));
    ASSERT_TRUE(download.outcome.wait());
    EXPECT_EQ(download.outcome.text(), "ok");
    EXPECT_EQ(download.last, (std::pair{2 * kBlock, 2 * kBlock}));
    scheduler.sleep(1s);
    EXPECT_EQ(contentOf(folder.file("f")).substr(0, 2 * kBlock), stored(recording, 2));
    EXPECT_EQ(contentOf(folder.file("f")).size(), (2 * kBlock + 83) / 84 * 84);
    EXPECT_EQ(download.calls, static_cast<int>((2 * kBlock + 83) / 84) + 1);
    EXPECT_EQ(host.commands(), (Lines{"99ec", "0182", "0282", "0382", "1382", "0482"}));
    EXPECT_EQ(host.requests.at(3), "03820c00000000000a0000000000000022f48e6a");
    EXPECT_EQ(host.store->count(), 1U);
    EXPECT_EQ(host.log->count("Delete fileId(10) error:(null)"), 1);
    EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
    EXPECT_EQ(host.log->count("Timeout!"), 0);
    scheduler.sleep(10s);  // the watchdog stays until its next check without data
    EXPECT_EQ(host.log->count("Timeout!"), 1);
    EXPECT_EQ(download.outcome.calls, 1);
  });
}

TEST(Download, ContinuesAtTheSizeOfTheFile) {
  // Offsets inside a packet, at the last packet and at the very end.
  for (const std::uint64_t have : {std::uint64_t{1}, std::uint64_t{84} * 200, kBlock - 1, kBlock}) {
    const testing::TemporaryFolder folder;
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      const Bytes recording = recordingOf(30000);
      host.store->add(recording);
      testing::writeFile(folder.file("f"), stored(recording, 1).substr(0, have));
      Download download(scheduler);
      download.start(host, folder.file("f"));
      ASSERT_TRUE(download.outcome.wait()) << have;
      scheduler.sleep(1s);
      EXPECT_EQ(download.outcome.text(), "ok");
      EXPECT_EQ(contentOf(folder.file("f")).substr(0, kBlock), stored(recording, 1));
      EXPECT_EQ(host.store->count(), 0U);
    });
  }
}

TEST(Download, SaysWhyItDidNotBegin) {
  struct Case {
    const char* silenced;  // this command's reply is spoilt
    std::size_t recordings, have;
    const char* outcome;
    bool opened;
  };
  for (const Case& test : std::vector<Case>{
           {"", 0, 0, "1005 文件ID获取失败", false},
           {"0182", 1, 0, "1005 文件ID获取失败", false},
           {"0282", 1, 0, "1006 获取文件信息失败", false},
           {"", 1, kBlock + 1, "1007 已下载文件长度大于待下载文件总长度", true},
       }) {
    const testing::TemporaryFolder folder;
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      if (test.recordings != 0) host.store->add(recordingOf(5));
      if (test.have != 0) testing::writeFile(folder.file("f"), std::string(test.have, 'x'));
      const std::string spoilt(test.silenced);
      host.setReplies([&](const std::string& request, Bytes reply) {
        return !spoilt.empty() && request.starts_with(spoilt) ? Bytes{0} : reply;
      });
      Download download(scheduler);
      download.start(host, folder.file("f"));
      ASSERT_TRUE(download.outcome.wait());
      EXPECT_EQ(download.outcome.text(), test.outcome);
      EXPECT_EQ(fileIsExist(folder.file("f")), test.opened);
      EXPECT_EQ(static_cast<std::size_t>(fileSize(folder.file("f"))), test.have);
      scheduler.sleep(1s);
      EXPECT_EQ(host.store->count(), test.recordings);
    });
  }
}

// The command itself fails: the radio refuses the write, or there is no radio any more.
TEST(Download, AFailedRequestIsReportedOnce) {
  for (const bool refused : {true, false}) {
    const testing::TemporaryFolder folder;
    const auto faults = std::make_shared<sim::ScriptedFaults>();
    if (refused) faults->add(sim::LinkEvent::acknowledgement, 4, {.fault = sim::Fault::refuse});
    onVirtualTime(
        [&](SimHost& host, VirtualTimeScheduler& scheduler) {
          host.store->add(recordingOf(5));
          if (!refused) {
            host.setReplies([&](const std::string& request, Bytes reply) {
              if (request.starts_with("0282")) host.helper->setConnectedPeripheral(nullptr);
              return reply;
            });
          }
          Download download(scheduler);
          download.start(host, folder.file("f"));
          ASSERT_TRUE(download.outcome.wait());
          const MaybeError error = download.outcome.error;
          ASSERT_TRUE(error);
          EXPECT_EQ(error->domain() + std::to_string(error->code()),
                    refused ? "kwt.sim.link3" : "com.kwt.sdk1001");
          scheduler.sleep(20s);
          EXPECT_EQ(download.outcome.calls, 1);
          // The recorder saw a refused request and sent its packets: they must not end in a deletion.
          EXPECT_EQ(host.store->count(), 1U);
          EXPECT_FALSE(host.helper->writeDataBlock());
        },
        faults);
  }
}

TEST(Download, ThatStallsEndsSilentlyAndContinuesLater) {
  struct Case {
    std::uint64_t packet;  // delayed
    Duration delay;
    bool stalls;
  };
  for (const Case& test :
       std::vector<Case>{{4, 900ms, false}, {4, 1200ms, true}, {100, 4900ms, false}, {100, 11s, true}}) {
    const testing::TemporaryFolder folder;
    const auto faults = std::make_shared<sim::ScriptedFaults>();
    faults->add(sim::LinkEvent::notification, test.packet, {.fault = sim::Fault::delay, .delay = test.delay});
    onVirtualTime(
        [&](SimHost& host, VirtualTimeScheduler& scheduler) {
          const Bytes recording = recordingOf(20000);
          host.store->add(recording);
          Download download(scheduler);
          download.start(host, folder.file("f"));
          EXPECT_NE(download.outcome.wait(15s), test.stalls) << test.packet;
          EXPECT_EQ(host.log->count("Timeout!"), test.stalls ? 1 : 0);
          if (!test.stalls) return;
          EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
          EXPECT_EQ(static_cast<std::uint64_t>(fileSize(folder.file("f"))), (test.packet - 4) * 84);
          host.link->disconnect();  // what the recorder still sends would be taken for an answer
          host.link->connect();
          Download again(scheduler);
          again.start(host, folder.file("f"));
          ASSERT_TRUE(again.outcome.wait());
          scheduler.sleep(1s);
          EXPECT_EQ(contentOf(folder.file("f")).substr(0, kBlock), stored(recording, 1));
        },
        faults);
  }
}

TEST(Download, PacketsBehindTheLastOneDoNothing) {
  const testing::TemporaryFolder folder;
  onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.store->add(recordingOf(5));
    host.model->setAlwaysEndMarker(true);
    Download download(scheduler);
    download.start(host, folder.file("f"));
    ASSERT_TRUE(download.outcome.wait());
    scheduler.sleep(20s);
    EXPECT_EQ(download.outcome.calls, 1);
    EXPECT_EQ(host.log->count("Delete fileId(10)"), 1);
    EXPECT_EQ(host.store->count(), 0U);
  });
}

TEST(Download, WhatCouldNotBeSavedStaysOnTheRecorder) {
  const testing::TemporaryFolder folder;
  for (const std::string& path : {std::string("/dev/full"), folder.file("missing/f")}) {
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      host.store->add(recordingOf(5));
      Download download(scheduler);
      download.start(host, path);
      ASSERT_TRUE(download.outcome.wait());
      EXPECT_EQ(download.last.first, kBlock);
      scheduler.sleep(20s);
      EXPECT_EQ(host.store->count(), 1U);
      EXPECT_EQ(host.log->count("Cannot "), 1);
    });
  }
}

}  // namespace
}  // namespace kwtsdk
