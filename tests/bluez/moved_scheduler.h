#pragma once

#include <atomic>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::testing {

/// Real threads, and a clock that the test moves. One that is hasty waits a thousandth of the time for the
/// bus to open.
class MovedScheduler : public Scheduler {
 public:
  explicit MovedScheduler(bool isHasty = false) : isHasty_(isHasty) {}

  void move(Duration by) { moved_ = moved_.load() + by; }

  Duration now() const override { return real_->now() + moved_.load(); }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    if (isHasty_ && name == "kwt.bluez.open") return std::make_shared<Hasty>(real_->semaphore(name));
    return real_->semaphore(name);
  }
  std::shared_ptr<SerialQueue> serialQueue(const std::string& label) override {
    return real_->serialQueue(label);
  }
  std::shared_ptr<RecursiveLock> recursiveLock(const std::string& name) override {
    return real_->recursiveLock(name);
  }
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                        std::function<void()> onFire) override {
    return real_->repeatingTimer(first, interval, leeway, std::move(onFire));
  }
  void sleep(Duration duration) override { real_->sleep(duration); }

 private:
  struct Hasty : Semaphore {
    explicit Hasty(std::shared_ptr<Semaphore> its) : real(std::move(its)) {}
    void signal() override { real->signal(); }
    bool wait(std::optional<Duration> timeout) override { return real->wait(*timeout / 1000); }
    const std::shared_ptr<Semaphore> real;
  };

  const bool isHasty_;
  const std::shared_ptr<Scheduler> real_ = threadScheduler();
  std::atomic<Duration> moved_ = Duration::zero();
};

}  // namespace kwtsdk::testing
