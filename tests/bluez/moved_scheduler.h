#pragma once

#include <algorithm>
#include <atomic>

#include "tests/support/forwarding_scheduler.h"

namespace kwtsdk::testing {

/// Real threads, and a clock that the test moves. Who waits in vain on a hasty one does so for a few
/// milliseconds, and then the clock has moved by all of it; for the bus to open it waits somewhat longer.
class MovedScheduler : public ForwardingScheduler {
 public:
  explicit MovedScheduler(bool isHasty = false) : ForwardingScheduler(threadScheduler()), isHasty_(isHasty) {}

  void move(Duration by) { moved_ = moved_.load() + by; }

  Duration now() const override { return ForwardingScheduler::now() + moved_.load(); }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    using namespace std::literals;
    auto real = ForwardingScheduler::semaphore(name);
    return isHasty_ ? std::make_shared<Hasty>(*this, std::move(real), name == "kwt.bluez.open" ? 100ms : 5ms)
                    : real;
  }

 private:
  struct Hasty : Semaphore {
    Hasty(MovedScheduler& its, std::shared_ptr<Semaphore> to, Duration limit)
        : clock(its), real(std::move(to)), longest(limit) {}
    void signal() override { real->signal(); }
    bool wait(std::optional<Duration> timeout) override {
      if (real->wait(timeout ? std::min(*timeout, longest) : timeout)) return true;
      clock.move(*timeout);
      return false;
    }
    MovedScheduler& clock;
    const std::shared_ptr<Semaphore> real;
    const Duration longest;
  };

  const bool isHasty_;
  std::atomic<Duration> moved_ = Duration::zero();
};

}  // namespace kwtsdk::testing
