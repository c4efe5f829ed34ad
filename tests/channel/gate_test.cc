#include <gtest/gtest.h>

#include "channel/gate.h"
#include "tests/support/sim_host.h"

namespace kwtsdk {
namespace {

using internal::Gate;

// Over many interleavings: a clean-up never runs inside another thread's hold, never waits for it, and is
// never lost.
TEST(Gate, CleanUpRunsOnceAndNeverInsideAnothersHold) {
  int leftBehind = 0;
  for (std::uint64_t seed = 0; seed < 200; ++seed) {
    const auto scheduler = sim::VirtualTimeScheduler::create(seed);
    int ran = 0;
    scheduler->run([&] {
      Gate gate(*scheduler);
      bool inside = false;
      const auto cleaned = scheduler->semaphore("cleaned"), sent = scheduler->semaphore("sent");
      scheduler->spawn("sender", [&] {
        {
          const Gate::Hold hold(gate);
          [&] { const Gate::Hold again(gate); }();  // recursive
          inside = true;
          for (int i = 0; i < 5; ++i) scheduler->preemptionPoint();
          inside = false;
        }
        sent->signal();
      });
      for (int i = 0; i < 3; ++i) scheduler->preemptionPoint();
      gate.whenFree([&] {
        EXPECT_FALSE(inside);
        ++ran;
        cleaned->signal();
      });
      leftBehind += ran == 0 ? 1 : 0;
      ASSERT_TRUE(cleaned->wait(std::chrono::seconds(1)));
      sent->wait(std::nullopt);
    });
    EXPECT_EQ(ran, 1) << "seed " << seed;
  }
  EXPECT_GT(leftBehind, 0) << "no seed met the held gate";
}

}  // namespace
}  // namespace kwtsdk
