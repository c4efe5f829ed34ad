#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

// Checks happen up to 0.1 s late, as the seed likes.
void expectAbout(Duration actual, Duration expected) {
  EXPECT_GE(actual, expected);
  EXPECT_LE(actual, expected + 100ms);
}

TEST(Watchdog, SilenceEndsTheStream) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    const auto pending = [](const MaybeError&, const auto&) { ADD_FAILURE() << "cleared, not called"; };
    host.helper->setCompletionBlock(pending);
    host.helper->setWriteDataBlock(pending);
    host.helper->startMonitorTimer([&](const MaybeError& error, const auto& reply) {
      EXPECT_FALSE(reply);
      EXPECT_TRUE(host.helper->completionBlock());
      host.outcome.take(error);
    });
    EXPECT_EQ(host.outcome.ended(), "999 命令执行超时");
    expectAbout(scheduler.now(), 1s);
    scheduler.sleep(1ms);
    EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock() ||
                 host.helper->monitorTimer());
    EXPECT_EQ(host.log->lines(), std::vector<std::string>{"Timeout!"});
  });
}

TEST(Watchdog, ClearsWhatItsCallbackStored) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    const auto stored = [](const MaybeError&, const auto&) {};
    host.helper->startMonitorTimer([&](const MaybeError&, const auto&) {
      host.helper->setCompletionBlock(stored);
      host.helper->setWriteDataBlock(stored);
      host.helper->startMonitorTimer(stored);
    });
    scheduler.sleep(2s);
    EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock() ||
                 host.helper->monitorTimer());
  });
}

TEST(Watchdog, DataInEachIntervalKeepsItWaiting) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.helper->startMonitorTimer([&](const MaybeError& error, const auto&) { host.outcome.take(error); });
    for (int interval = 0; interval < 3; ++interval) {
      host.helper->setWritten(true);
      scheduler.sleep(interval == 0 ? 1500ms : 5s);
      EXPECT_FALSE(host.helper->written());
    }
    ASSERT_TRUE(host.outcome.wait());
    expectAbout(scheduler.now(), 16s);
  });
}

TEST(Watchdog, OnlyTheStoredTimerHasAnEffect) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    int fired = 0;
    const auto count = [&](const MaybeError&, const auto&) { ++fired; };
    host.helper->startMonitorTimer(count);
    const auto first = host.helper->monitorTimer();
    scheduler.sleep(500ms);
    host.helper->startMonitorTimer(nullptr);  // replaces the first, which is still held here
    scheduler.sleep(800ms);
    EXPECT_EQ(host.log->count("Timeout!"), 0);
    scheduler.sleep(20s);
    EXPECT_EQ(host.log->count("Timeout!"), 1);
    host.helper->startMonitorTimer(count);
    host.helper->setMonitorTimer(nullptr);
    host.helper->startMonitorTimer(count);
    host.helper->stopMonitorTimer();
    host.helper->stopMonitorTimer();
    scheduler.sleep(20s);
    EXPECT_EQ(fired, 0);
    first->cancel();
  });
}

TEST(Watchdog, ItsCallbackMayReleaseTheFacade) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    const std::weak_ptr<KWTBluetoothHelper> weak = host.helper;
    host.helper->startMonitorTimer([&](const MaybeError&, const auto&) { host.helper = nullptr; });
    scheduler.sleep(20s);
    EXPECT_TRUE(weak.expired());
  });
}

}  // namespace
}  // namespace kwtsdk
