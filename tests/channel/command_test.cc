// What hosts and peripherals may do to a command that is under way.

#include <gtest/gtest.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

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
  bool busy() const { return helper->completionBlock() != nullptr; }

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

}  // namespace
}  // namespace kwtsdk
