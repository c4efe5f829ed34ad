#pragma once

#include <atomic>

#include "tests/support/forwarding_scheduler.h"

namespace kwtsdk::testing {

/// Real threads, and a clock that the test moves. One that is hasty waits a thousandth of the time for the
/// bus to open.
class MovedScheduler : public ForwardingScheduler {
 public:
  explicit MovedScheduler(bool isHasty = false) : ForwardingScheduler(threadScheduler()), isHasty_(isHasty) {}

  void move(Duration by) { moved_ = moved_.load() + by; }

  Duration now() const override { return ForwardingScheduler::now() + moved_.load(); }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    auto real = ForwardingScheduler::semaphore(name);
    if (isHasty_ && name == "kwt.bluez.open") return std::make_shared<Hasty>(std::move(real));
    return real;
  }

 private:
  struct Hasty : Semaphore {
    explicit Hasty(std::shared_ptr<Semaphore> its) : real(std::move(its)) {}
    void signal() override { real->signal(); }
    bool wait(std::optional<Duration> timeout) override { return real->wait(*timeout / 1000); }
    const std::shared_ptr<Semaphore> real;
  };

  const bool isHasty_;
  std::atomic<Duration> moved_ = Duration::zero();
};

}  // namespace kwtsdk::testing
