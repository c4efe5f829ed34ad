#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using sim::VirtualTimeScheduler;
using testing::onVirtualTime;
using testing::SimHost;

TEST(Blocking, AnswersOfAHealthyRecorder) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    EXPECT_EQ(host.helper->getPower(), 87);
    EXPECT_EQ(host.helper->getFirmwareVersion(), "1.2.3");
    EXPECT_EQ(host.helper->getCapacity()->size(), 2U);
    EXPECT_EQ(host.helper->getFileNumAndFirstId(), (FlashInfo{0, 0}));
    EXPECT_FALSE(host.helper->getFileInfo(10)->exist());
    EXPECT_TRUE(host.helper->notifyDownloadSuccess());
    EXPECT_EQ(scheduler.now(), 0s);
  });
}

TEST(Blocking, SilenceEndsAfterTheTimeOutAndFreesTheFacade) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    host.setReplies([](const auto&, const auto&) { return std::nullopt; });
    const auto timed = [&](const char* what, Duration expected, auto call) {
      const Duration start = scheduler.now();
      call();
      EXPECT_EQ(scheduler.now() - start, expected) << what;
      EXPECT_FALSE(host.helper->completionBlock()) << what;
    };
    timed("power", 5s, [&] { EXPECT_EQ(host.helper->getPower(), -1); });
    timed("version", 5s, [&] { EXPECT_EQ(host.helper->getFirmwareVersion(), std::nullopt); });
    timed("capacity", 5s, [&] { EXPECT_EQ(host.helper->getCapacity(), std::nullopt); });
    timed("count", 5s, [&] { EXPECT_EQ(host.helper->getFileNumAndFirstId(), std::nullopt); });
    timed("info", 5s, [&] { EXPECT_FALSE(host.helper->getFileInfo(10)); });
    timed("notice", 2s, [&] { EXPECT_TRUE(host.helper->notifyDownloadSuccess()); });
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

TEST(Blocking, OnTheLinkThreadItRunsIntoItsTimeOut) {
  onVirtualTime([](SimHost& host, VirtualTimeScheduler& scheduler) {
    std::vector<std::int64_t> levels;
    testing::Outcome outcome(scheduler);
    host.helper->getPower([&](const MaybeError& error, std::uint64_t) {
      levels.push_back(host.helper->getPower());  // refused, which frees the facade
      levels.push_back(host.helper->getPower());  // sent, but this thread cannot forward the answer
      outcome.take(error);
    });
    ASSERT_TRUE(outcome.wait());
    EXPECT_EQ(levels, (std::vector<std::int64_t>{0, -1}));
    EXPECT_EQ(scheduler.now(), 5s);
    EXPECT_EQ(host.helper->getPower(), 87);
  });
}

}  // namespace
}  // namespace kwtsdk
