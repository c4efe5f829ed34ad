#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::testing {

/// Passes everything on to another scheduler, for tests that change some of it.
class ForwardingScheduler : public Scheduler {
 public:
  explicit ForwardingScheduler(std::shared_ptr<Scheduler> real) : real_(std::move(real)) {}

  std::shared_ptr<SerialQueue> serialQueue(const std::string& label) override {
    return real_->serialQueue(label);
  }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override { return real_->semaphore(name); }
  std::shared_ptr<RecursiveLock> recursiveLock(const std::string& name) override {
    return real_->recursiveLock(name);
  }
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                        std::function<void()> onFire) override {
    return real_->repeatingTimer(first, interval, leeway, std::move(onFire));
  }
  void sleep(Duration duration) override { real_->sleep(duration); }
  Duration now() const override { return real_->now(); }

 private:
  const std::shared_ptr<Scheduler> real_;
};

}  // namespace kwtsdk::testing
