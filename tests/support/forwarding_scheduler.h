#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
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

/// A clock that is so many times as fast, or slow.
class PacedScheduler : public ForwardingScheduler {
 public:
  PacedScheduler(std::shared_ptr<Scheduler> real, double factor)
      : ForwardingScheduler(std::move(real)), factor_(factor) {}

  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    return std::make_shared<Waiter>(*this, ForwardingScheduler::semaphore(name));
  }
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                        std::function<void()> onFire) override {
    return ForwardingScheduler::repeatingTimer(real(first), real(interval), leeway, std::move(onFire));
  }
  void sleep(Duration duration) override { ForwardingScheduler::sleep(real(duration)); }
  Duration now() const override { return scaled(ForwardingScheduler::now(), factor_); }

 private:
  struct Waiter : Semaphore {
    Waiter(const PacedScheduler& its, std::shared_ptr<Semaphore> to)
        : factor(its.factor_), real(std::move(to)) {}
    void signal() override { real->signal(); }
    bool wait(std::optional<Duration> timeout) override {
      return real->wait(timeout ? std::optional(scaled(*timeout, 1 / factor)) : std::nullopt);
    }
    const double factor;
    const std::shared_ptr<Semaphore> real;
  };
  static Duration scaled(Duration time, double by) {
    return std::chrono::duration_cast<Duration>(std::chrono::duration<double>(time) * by);
  }
  Duration real(Duration time) const { return scaled(time, 1 / factor_); }

  const double factor_;
};

}  // namespace kwtsdk::testing
