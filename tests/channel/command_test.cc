// What hosts, peripherals and silence may do to a command that is under way.

#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using namespace testing;

/// A host on virtual time with threads that send firmware packets.
struct Sender : FakeHost {
  explicit Sender(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : FakeHost(virtualTime), scheduler(*virtualTime) {}

  /// Signalled when updateSendData has returned.
  std::shared_ptr<Semaphore> send() {
    const auto returned = scheduler.semaphore("returned");
    scheduler.spawn("sender", [this, returned] {
      helper->updateSendData({1, 2}, nullptr);
      returned->signal();
    });
    scheduler.sleep(1s);
    return returned;
  }
  VirtualTimeScheduler& scheduler;
};

bool has(const std::shared_ptr<Semaphore>& signal) { return signal->wait(0s); }

TEST(Command, AcknowledgementsEndTheWaitsOfTheirOwnWrites) {
  play<Sender>([](auto& host) {
    const auto first = host.send();
    host.helper->setCompletionBlock(nullptr);
    const auto second = host.send();
    host.helper->setCompletionBlock(nullptr);
    host.peripheral->onWrite = [](const auto&) { throw std::runtime_error("no"); };
    host.helper->getFirmwareVersion();
    EXPECT_FALSE(has(first) || has(second));
    for (const auto& returned : {first, second}) {
      host.acknowledge(host.firmware);
      EXPECT_TRUE(returned->wait(1s));
      EXPECT_FALSE(has(second));
    }
    host.peripheral->onWrite = nullptr;
    const auto third = host.send();
    host.peripheral->current = PeripheralState::disconnected;
    host.helper->updatePrepare(nullptr);  // is refused, and clears what was in its way
    EXPECT_TRUE(third->wait(1s));
  });
}

TEST(Command, AWrapperMayWaitForTheSender) {
  play<Sender>([](auto& host) {
    const auto returned = host.send();
    bool ended = false;
    host.helper->setCompletionBlock(
        [&, inner = host.helper->completionBlock()](const MaybeError& error, const auto& reply) {
          inner(error, reply);
          ended = returned->wait(20s);
        });
    host.acknowledge(host.firmware);
    EXPECT_TRUE(ended);
  });
}

// Checks happen up to 0.1 s late, as the seed likes.
void expectAbout(Duration actual, Duration expected) {
  EXPECT_TRUE(actual >= expected && actual <= expected + 100ms) << actual / 1ms << " ms";
}

TEST(Watchdog, SilenceEndsTheStreamAndWhatItsCallbackStored) {
  playEach<VirtualHost>(std::array{false, true}, [](auto& host, bool stores) {
    KWTBluetoothHelper& helper = *host.helper;
    const auto cleared = [](const MaybeError&, const auto&) { ADD_FAILURE() << "cleared, not called"; };
    const auto store = [&] {
      helper.setCompletionBlock(cleared);
      helper.setWriteDataBlock(cleared);
    };
    store();
    helper.startMonitorTimer([&](const MaybeError& error, const auto& reply) {
      EXPECT_TRUE(helper.completionBlock());
      if (stores) {
        store();
        helper.startMonitorTimer(cleared);
      }
      host.outcome.completion()(error, reply);
    });
    EXPECT_EQ(host.outcome.ended() + " " + host.outcome.value, "999 命令执行超时 none");
    expectAbout(host.scheduler.now(), 1s);
    host.scheduler.sleep(1ms);
    EXPECT_FALSE(helper.completionBlock() || helper.writeDataBlock() || helper.monitorTimer());
    host.scheduler.sleep(2s);
    EXPECT_EQ(host.log->lines(), Lines{"Timeout!"});
  });
}

TEST(Watchdog, OnlyTheStoredTimerHasAnEffect) {
  play<VirtualHost>([](auto& host) {
    host.helper->startMonitorTimer(host.outcome.completion());
    const auto first = host.helper->monitorTimer();
    host.scheduler.sleep(500ms);
    host.helper->startMonitorTimer(nullptr);  // replaces the first, which is still held here
    host.scheduler.sleep(800ms);
    EXPECT_EQ(host.log->count("Timeout!"), 0);
    host.scheduler.sleep(20s);
    EXPECT_EQ(host.log->count("Timeout!"), 1);
    host.helper->startMonitorTimer(host.outcome.completion());
    host.helper->setMonitorTimer(nullptr);
    host.helper->startMonitorTimer(host.outcome.completion());
    for (int i = 0; i < 2; ++i) host.helper->stopMonitorTimer();
    host.scheduler.sleep(20s);
    EXPECT_EQ(host.outcome.calls, 0);
    first->cancel();

    const std::weak_ptr<KWTBluetoothHelper> weak = host.helper;  // its callback may release the facade
    host.helper->startMonitorTimer([&](const MaybeError&, const auto&) { host.helper = nullptr; });
    host.scheduler.sleep(20s);
    EXPECT_TRUE(weak.expired());
  });
}

}  // namespace
}  // namespace kwtsdk
