#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

TEST(Blocking, EachFormSendsItsFrameAndGivesTheAnswer) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    EXPECT_EQ(host.helper->getPower(), 87);
    EXPECT_EQ(host.helper->getCapacity()->size(), 2U);
    EXPECT_EQ(host.helper->getFirmwareVersion(), "1.2.3");
    EXPECT_EQ(host.helper->getFileNumAndFirstId(), (FlashInfo{0, 0}));
    EXPECT_FALSE(host.helper->getFileInfo((1LL << 32) + 10)->exist());
    EXPECT_TRUE(host.helper->notifyDownloadSuccess());
    std::optional<ByteCounts> result;
    host.helper->deleteFile(10, host.outcome.completion(result));
    EXPECT_EQ(host.outcome.ended(), "4 删除失败，文件系统为空");
    EXPECT_EQ(host.requests, (Lines{"99ec2a02b20a0001000000000000001003a34083df",
                                    "99ec2a02b20a000100000000000000107fb47d3086", "8e42455354", "0182010000",
                                    "028204000a000000d103ee45", "1382020000", "048204000a000000d103ee45"}));
    EXPECT_EQ(scheduler.now(), 0s);
  });
}

TEST(Blocking, SilenceEndsAfterTheTimeOutAndFreesTheFacade) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.setReplies([](const auto&, const auto&) { return std::nullopt; });
    const std::tuple<Duration, std::function<bool(KWTBluetoothHelper&)>> calls[]{
        {5s, [](auto& helper) { return helper.getPower() == -1; }},
        {5s, [](auto& helper) { return !helper.getFirmwareVersion(); }},
        {5s, [](auto& helper) { return !helper.getCapacity(); }},
        {5s, [](auto& helper) { return !helper.getFileNumAndFirstId(); }},
        {5s, [](auto& helper) { return !helper.getFileInfo(10); }},
        {2s, [](auto& helper) { return helper.notifyDownloadSuccess(); }}};
    for (const auto& [timeOut, call] : calls) {
      const Duration start = scheduler.now();
      EXPECT_TRUE(call(*host.helper)) << start / 1s;
      EXPECT_EQ(scheduler.now() - start, timeOut);
      EXPECT_FALSE(host.helper->completionBlock());
    }
  });
}

TEST(Blocking, ARefusedCallFreesTheFacadeToo) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    const auto occupy = [&] { host.helper->setCompletionBlock([](const MaybeError&, const auto&) {}); };
    occupy();
    EXPECT_EQ(host.helper->getPower(), 0);
    occupy();
    EXPECT_EQ(host.helper->getFirmwareVersion(), std::nullopt);
    EXPECT_EQ(host.helper->getPower(), 87);
    host.link->disconnect();
    EXPECT_EQ(host.helper->getPower(), 0);
    EXPECT_EQ(host.helper->getFirmwareVersion(), "");
    EXPECT_EQ(scheduler.now(), 0s);
  });
}

// Whatever the link's thread does once the value is there.
TEST(Blocking, NeverOutlastsItsTimeOut) {
  for (const bool slowPeripheral : {true, false}) {
    const auto scheduler = VirtualTimeScheduler::create(1);
    scheduler->run([&] {
      auto link = scheduler->serialQueue("link");
      const auto returned = scheduler->semaphore("returned");
      FakeHost host(scheduler);
      host.peripheral->onSetNotify = [&](bool enabled) {
        if (!enabled && slowPeripheral) scheduler->sleep(8s);
      };
      host.peripheral->onWrite = [&](const auto& written) {
        link->async([&, written] {
          if (!slowPeripheral) {  // a host's completion that waits for the thread inside the form
            const auto completion = host.helper->completionBlock();
            host.helper->setCompletionBlock([&, completion](const MaybeError& error, const auto& reply) {
              completion(error, reply);
              returned->wait(1min);
            });
          }
          host.acknowledge(written);
          host.notify(host.statusNotify, "99ec" + std::string(44, '0') + "57000000");
        });
      };
      EXPECT_EQ(host.helper->getPower(), 87);
      EXPECT_EQ(scheduler->now(), slowPeripheral ? 5s : 0s);
      EXPECT_FALSE(host.helper->completionBlock());
      returned->signal();
      link = nullptr;
    });
  }
}

TEST(Blocking, OnTheLinkThreadItRunsIntoItsTimeOut) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    std::vector<std::int64_t> levels;
    host.helper->getPower([&](const MaybeError& error, std::uint64_t) {
      levels.push_back(host.helper->getPower());  // refused, which frees the facade
      levels.push_back(host.helper->getPower());  // sent, but this thread cannot forward the answer
      host.outcome.take(error);
    });
    ASSERT_TRUE(host.outcome.wait());
    EXPECT_EQ(levels, (std::vector<std::int64_t>{0, -1}));
    EXPECT_EQ(scheduler.now(), 5s);
    EXPECT_EQ(host.helper->getPower(), 87);
  });
}

}  // namespace
}  // namespace kwtsdk
