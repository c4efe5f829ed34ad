#include <gtest/gtest.h>

#include "tests/support/facade_operations.h"
#include "tests/support/played_host.h"

namespace kwtsdk::testing {
namespace {

TEST(Blocking, SilenceEndsAfterTheTimeOutAndFreesTheFacade) {
  play<VirtualHost>([](auto& host) {
    KWTBluetoothHelper& helper = *host.helper;
    host.setReplies([](const auto&, const auto&) { return std::nullopt; });
    Lines values;
    for (const BlockingForm& form : blockingForms()) {
      const Duration start = host.scheduler.now();
      values.push_back(form.call(helper));
      EXPECT_EQ(host.scheduler.now() - start, form.timeOut) << form.name;
      EXPECT_FALSE(helper.completionBlock());
    }
    EXPECT_EQ(values, (Lines{"-1", "none", "none", "none", "1", "none"}));
  });
}

TEST(Blocking, ARefusedCallFreesTheFacadeToo) {
  play<VirtualHost>([](auto& host) {
    KWTBluetoothHelper& helper = *host.helper;
    const ReplyHandler other = [](const MaybeError&, const auto&) {};
    helper.setCompletionBlock(other);
    EXPECT_EQ(helper.getPower(), 0);
    helper.setCompletionBlock(other);
    EXPECT_EQ(helper.getFirmwareVersion(), std::nullopt);
    EXPECT_EQ(helper.getPower(), 87);
    host.link->disconnect();
    EXPECT_EQ(helper.getPower(), 0);
    EXPECT_EQ(helper.getFirmwareVersion(), "");
    EXPECT_EQ(host.scheduler.now(), 0s);
    host.link->connect();
    // On the link's thread: refused, which frees the facade, then sent, but nobody can forward the answer.
    std::vector<std::int64_t> levels;
    helper.getPower([&](const MaybeError& error, std::uint64_t) {
      for (int i = 0; i < 2; ++i) levels.push_back(helper.getPower());
      host.outcome.completion()(error);
    });
    ASSERT_TRUE(host.outcome.wait());
    EXPECT_EQ(levels, (std::vector<std::int64_t>{0, -1}));
    EXPECT_EQ(host.scheduler.now(), 5s);
    EXPECT_EQ(helper.getPower(), 87);
  });
}

// Another thread's write takes so long that the form ends before its command could be sent.
TEST(Blocking, SendsNothingOnceItsTimeOutIsOver) {
  play<PlayedHost>([](auto& host) {
    const auto other = host.scheduler.serialQueue("other");
    host.peripheral->onWrite = [&](const auto&) { host.scheduler.sleep(8s); };
    other->async([&] { host.helper->getCapacity(nullptr); });
    host.scheduler.sleep(1s);
    host.helper->setCompletionBlock(nullptr);  // or it would be refused
    EXPECT_EQ(host.helper->getPower(), -1);
    EXPECT_EQ(host.scheduler.now(), 6s);
    host.scheduler.sleep(5s);
    EXPECT_EQ(host.peripheral->calls.size(), 2U);  // the other one's
    EXPECT_FALSE(host.helper->completionBlock());
  });
}

// Whatever the link's thread does once the value is there.
TEST(Blocking, NeverOutlastsItsTimeOut) {
  playEach<PlayedHost>(std::array{true, false}, [](auto& host, bool slowPeripheral) {
    const auto returned = host.scheduler.semaphore("returned");
    host.answers["99"] = "99ec" + std::string(44, '0') + "57000000";
    host.peripheral->onSetNotify = [&](bool enabled) {
      if (!enabled && slowPeripheral) host.scheduler.sleep(8s);
    };
    host.peripheral->onWrite = [&, answer = host.peripheral->onWrite](const auto& written) {
      answer(written);
      if (slowPeripheral) return;  // else a host's completion waits for the thread inside the form
      const auto inner = host.helper->completionBlock();
      host.helper->setCompletionBlock([inner, returned](const MaybeError& error, const auto& reply) {
        inner(error, reply);
        returned->wait(1min);
      });
    };
    EXPECT_EQ(host.helper->getPower(), 87);
    EXPECT_EQ(host.scheduler.now(), slowPeripheral ? 5s : 0s);
    EXPECT_FALSE(host.helper->completionBlock());
    returned->signal();
    host.link = nullptr;  // waits for the completion
  });
}

}  // namespace
}  // namespace kwtsdk::testing
