#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

constexpr std::uint64_t kBlock = 32768;

// What a download of one padded recording leaves: the stored bytes, then the last packet's filler.
std::string stored(const Bytes& recording, std::size_t blocks) {
  std::string content(recording.begin(), recording.end());
  content.resize(blocks * kBlock, '\0');
  return content;
}

struct Download {
  void start(SimHost& host, const std::string& path) {
    const auto note = [this](std::uint64_t done, std::uint64_t total) {
      EXPECT_GE(done, last.first);
      last = {done, total};
      ++calls;
    };
    host.helper->downloadFirstFlashFile(path, note, host.outcome.completion());
  }
  /// What a download into `path` ended with; the deletion follows it.
  std::string ended(SimHost& host, VirtualTimeScheduler& scheduler, const std::string& path) {
    start(host, path);
    std::string outcome = host.outcome.ended();
    scheduler.sleep(1s);
    return outcome;
  }

  std::pair<std::uint64_t, std::uint64_t> last;
  int calls = 0;
};

TEST(Download, BringsTheFirstFileAndDeletesItThere) {
  const TemporaryFolder folder;
  onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
    const Bytes recording = recordingOf(40000);
    host.store->add(recording);
    host.store->add(recordingOf(5, 2));
    Download download;
    EXPECT_EQ(download.ended(host, scheduler, folder.file("f")), "ok");
    EXPECT_EQ(download.last, (std::pair{2 * kBlock, 2 * kBlock}));
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
    EXPECT_EQ(host.outcome.calls, 1);
  });
}

// A host that watches the end or the packets by callbacks of its own around the library's.
TEST(Download, ItsFieldsMayBeWrapped) {
  for (const bool receiver : {false, true}) {
    const TemporaryFolder folder;
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      host.store->add(recordingOf(500));
      int seen = 0;
      const auto wrapped = [&](ReplyHandler inner) {
        return [&seen, inner = std::move(inner)](const MaybeError& error, const auto& reply) {
          ++seen;
          inner(error, reply);
        };
      };
      const auto wrap = [&](std::uint64_t, std::uint64_t) {
        if (seen != 0 || !host.helper->completionBlock()) return;
        if (receiver) {
          host.helper->setWriteDataBlock(wrapped(host.helper->writeDataBlock()));
        } else {
          host.helper->setCompletionBlock(wrapped(host.helper->completionBlock()));
        }
      };
      host.helper->downloadFirstFlashFile(folder.file("f"), wrap, host.outcome.completion());
      EXPECT_EQ(host.outcome.ended(), "ok");
      scheduler.sleep(1s);
      EXPECT_EQ(host.outcome.calls, 1);
      EXPECT_GT(seen, 0);
      EXPECT_EQ(host.commands(), (Lines{"99ec", "0182", "0282", "0382", "1382", "0482"}));
      EXPECT_EQ(host.store->count(), 0U);
      EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
    });
  }
}

TEST(Download, ContinuesAtTheSizeOfTheFile) {
  // Offsets inside a packet, at the last packet and at the very end.
  for (const std::uint64_t have : {std::uint64_t{1}, std::uint64_t{84} * 200, kBlock - 1, kBlock}) {
    const TemporaryFolder folder;
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      const Bytes recording = recordingOf(30000);
      host.store->add(recording);
      writeFile(folder.file("f"), stored(recording, 1).substr(0, have));
      host.model->setAlwaysEndMarker(true);  // behind the last packet: it has to do nothing
      Download download;
      EXPECT_EQ(download.ended(host, scheduler, folder.file("f")), "ok") << have;
      scheduler.sleep(20s);
      EXPECT_EQ(host.outcome.calls, 1);
      EXPECT_EQ(host.log->count("Delete fileId(10)"), 1);
      EXPECT_EQ(contentOf(folder.file("f")).substr(0, kBlock), stored(recording, 1));
      EXPECT_EQ(host.store->count(), 0U);
    });
  }
}

TEST(Download, SaysWhyItDidNotBegin) {
  const std::tuple<std::string, std::size_t, std::size_t, const char*> cases[]{
      {"none", 0, 0, "1005 文件ID获取失败"},  // the command whose reply is spoilt
      {"0182", 1, 0, "1005 文件ID获取失败"},
      {"0282", 1, 0, "1006 获取文件信息失败"},
      {"none", 1, kBlock + 1, "1007 已下载文件长度大于待下载文件总长度"}};
  for (const auto& test : cases) {
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      const TemporaryFolder folder;
      const std::size_t recordings = std::get<1>(test), have = std::get<2>(test);
      if (recordings != 0) host.store->add(recordingOf(5));
      if (have != 0) writeFile(folder.file("f"), std::string(have, 'x'));
      host.setReplies([&](const std::string& request, Bytes reply) {
        return request.starts_with(std::get<0>(test)) ? Bytes{0} : reply;
      });
      EXPECT_EQ(Download().ended(host, scheduler, folder.file("f")), std::get<3>(test));
      EXPECT_EQ(fileIsExist(folder.file("f")), have != 0);
      EXPECT_EQ(static_cast<std::size_t>(fileSize(folder.file("f"))), have);
      EXPECT_EQ(host.store->count(), recordings);
    });
  }
}

// The command itself fails: the radio refuses the write, or there is no radio any more.
TEST(Download, AFailedRequestIsReportedOnce) {
  for (const bool refused : {true, false}) {
    const TemporaryFolder folder;
    const auto faults = std::make_shared<sim::ScriptedFaults>();
    if (refused) faults->add(sim::LinkEvent::acknowledgement, 4, {.fault = sim::Fault::refuse});
    const auto body = [&](SimHost& host, VirtualTimeScheduler& scheduler) {
      host.store->add(recordingOf(5));
      host.setReplies([&](const std::string& request, Bytes reply) {
        if (!refused && request.starts_with("0282")) host.helper->setConnectedPeripheral(nullptr);
        return reply;
      });
      Download download;
      const std::string outcome = download.ended(host, scheduler, folder.file("f"));
      EXPECT_TRUE(outcome.starts_with(refused ? "3 " : "1001 "));
      EXPECT_EQ(host.outcome.error->domain(), refused ? "kwt.sim.link" : "com.kwt.sdk");
      scheduler.sleep(20s);
      EXPECT_EQ(host.outcome.calls, 1);
      // The recorder saw a refused request and sent its packets: they must not end in a deletion.
      EXPECT_EQ(host.store->count(), 1U);
      EXPECT_FALSE(host.helper->writeDataBlock());
    };
    onVirtualTime(body, faults);
  }
}

TEST(Download, ThatStallsEndsSilentlyAndContinuesLater) {
  const std::pair<std::uint64_t, Duration> cases[]{// the packet that is delayed, and how long
                                                   {4, 900ms},
                                                   {4, 1200ms},
                                                   {100, 4900ms},
                                                   {100, 11s}};
  for (const auto& test : cases) {
    const TemporaryFolder folder;
    const std::string path = folder.file("f");
    const bool stalls = test.second != 900ms && test.second != 4900ms;
    const auto faults = std::make_shared<sim::ScriptedFaults>();
    faults->add(sim::LinkEvent::notification, test.first, {.fault = sim::Fault::delay, .delay = test.second});
    const auto body = [&](SimHost& host, VirtualTimeScheduler& scheduler) {
      const Bytes recording = recordingOf(20000);
      host.store->add(recording);
      Download download;
      download.start(host, path);
      EXPECT_NE(host.outcome.wait(15s), stalls) << test.first;
      EXPECT_EQ(host.log->count("Timeout!"), stalls ? 1 : 0);
      if (!stalls) return;
      EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
      EXPECT_EQ(static_cast<std::uint64_t>(fileSize(path)), (test.first - 4) * 84);
      host.link->disconnect();  // what the recorder still sends would be taken for an answer
      host.link->connect();
      EXPECT_EQ(Download().ended(host, scheduler, path), "ok");
      EXPECT_EQ(contentOf(path).substr(0, kBlock), stored(recording, 1));
    };
    onVirtualTime(body, faults);
  }
}

TEST(Download, WhatCouldNotBeSavedStaysOnTheRecorder) {
  const TemporaryFolder folder;
  for (const std::string& path : {std::string("/dev/full"), folder.file("missing/f")}) {
    onVirtualTime([&](SimHost& host, VirtualTimeScheduler& scheduler) {
      host.store->add(recordingOf(5));
      Download download;
      EXPECT_EQ(download.ended(host, scheduler, path), "ok");
      EXPECT_EQ(download.last.first, kBlock);
      scheduler.sleep(20s);
      EXPECT_EQ(host.store->count(), 1U);
      EXPECT_EQ(host.log->count("Cannot "), 1);
    });
  }
}

}  // namespace
}  // namespace kwtsdk
