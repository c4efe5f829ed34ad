#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <thread>

#include <kwtsdk/sim/seeded_faults.h>

#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

// The one place where real threads and the real clock are the subject.

namespace kwtsdk::testing {
namespace {

TEST(ThreadScheduler, AQueueKeepsOrderAndMayDestroyItself) {
  const auto scheduler = threadScheduler();
  const auto done = scheduler->semaphore("done");
  std::vector<int> order;
  auto queue = scheduler->serialQueue("q");
  for (int i = 0; i < 1000; ++i) queue->async([&order, i] { order.push_back(i); });
  auto* const held = new std::shared_ptr<SerialQueue>(queue);
  queue->async([done, held] {
    delete held;  // the last reference: `queue` has been released below
    done->signal();
  });
  const std::weak_ptr<SerialQueue> weak = queue;
  queue = nullptr;
  ASSERT_TRUE(done->wait(std::nullopt));
  EXPECT_TRUE(order.size() == 1000 && std::is_sorted(order.begin(), order.end()));
  EXPECT_TRUE(weak.expired());
}

// Destroying the queue drops what has not begun, and only that lets the running work end, which it then waits
// for.
TEST(ThreadScheduler, DestroyingAQueueDropsItsWorkAndWaitsForTheRest) {
  const auto scheduler = threadScheduler();
  const auto started = scheduler->semaphore("started"), release = scheduler->semaphore("release");
  std::atomic<int> finished{0};
  auto queue = scheduler->serialQueue("q");
  queue->async([&finished, started, release] {
    started->signal();
    release->wait(std::nullopt);
    ++finished;
  });
  std::shared_ptr<void> token(nullptr, [release](void*) { release->signal(); });
  queue->async([&finished, token = std::move(token)] { ++finished; });
  ASSERT_TRUE(started->wait(std::nullopt));
  queue = nullptr;
  EXPECT_EQ(finished, 1);
}

TEST(ThreadScheduler, ATimerRepeatsUntilItsOwnFireDestroysIt) {
  const auto scheduler = threadScheduler();
  const auto fired = scheduler->semaphore("fired"), stored = scheduler->semaphore("stored");
  std::shared_ptr<Timer> timer;
  int count = 0;
  timer = scheduler->repeatingTimer(1ms, 1ms, 0ms, [&timer, &count, fired, stored] {
    if (count == 0) stored->wait(std::nullopt);
    if (++count == 3) timer = nullptr;
    fired->signal();
  });
  stored->signal();
  for (int i = 0; i < 3; ++i) ASSERT_TRUE(fired->wait(std::nullopt));
  EXPECT_FALSE(fired->wait(20ms));
}

// For the race detector: queries on one thread, replies and duplicates of them on the link's, field access on
// a third.
TEST(ThreadScheduler, AThousandBlockingQueriesWhileNotificationsArrive) {
  const auto scheduler = threadScheduler();
  const auto faults = std::make_shared<sim::SeededFaults>(1, sim::FaultRates{.duplicate = 0.3});
  SimHost host(scheduler, {}, faults);
  std::thread observer([&] {
    for (int i = 0; i < 20000; ++i) {
      host.helper->setWritten(host.helper->cmdType() != 0 && host.helper->completionBlock() != nullptr);
      host.helper->discoveredCharacteristics();
    }
  });
  for (int i = 0; i < 1000; ++i) EXPECT_EQ(host.helper->getPower(), 87) << i;
  observer.join();
}

// KWTSDK_UPDATES asks for more of them. Four recorders keep more threads busy than there are processors.
TEST(RealUpdate, NoneFailsAndNoneLosesAPacket) {
  const char* const asked = std::getenv("KWTSDK_UPDATES");
  const TemporaryFolder folder;
  const Bytes image = recordingOf(65536);
  writeFile(folder.file("image"), image);
  const auto scheduler = threadScheduler();
  std::vector<std::unique_ptr<SimHost>> hosts;
  for (int i = 0; i < 4; ++i) hosts.push_back(std::make_unique<SimHost>(scheduler));
  for (int left = asked == nullptr ? 20 : std::atoi(asked); left > 0; left -= 4) {
    for (const auto& host : hosts)
      host->helper->updateFirmware(folder.file("image"), nullptr, host->outcome.completion());
    for (const auto& host : hosts) EXPECT_EQ(host->outcome.ended() + host->outcome.value, "oksuccess");
  }
  // The last "done" may still be under way, those before it are not.
  for (const auto& host : hosts) EXPECT_TRUE(host->model->installedImage() == image);
}

}  // namespace
}  // namespace kwtsdk::testing
