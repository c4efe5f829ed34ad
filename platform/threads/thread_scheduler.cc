#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include <kwtsdk/scheduler.h>

#include "platform/threads/thread_queue.h"
#include "platform/threads/thread_timer.h"

namespace kwtsdk {
namespace {

class ThreadSemaphore : public Semaphore {
 public:
  void signal() override {
    {
      const std::lock_guard lock(mutex_);
      ++count_;
    }
    signalled_.notify_one();
  }

  bool wait(std::optional<Duration> timeout) override {
    std::unique_lock lock(mutex_);
    const auto available = [&] { return count_ > 0; };
    if (!timeout) {
      signalled_.wait(lock, available);
    } else if (!signalled_.wait_for(lock, *timeout, available)) {
      return false;
    }
    --count_;
    return true;
  }

 private:
  std::mutex mutex_;
  std::condition_variable signalled_;
  std::uint64_t count_ = 0;
};

class ThreadLock : public RecursiveLock {
 public:
  void lock() override { mutex_.lock(); }
  bool try_lock() override { return mutex_.try_lock(); }
  void unlock() override { mutex_.unlock(); }

 private:
  std::recursive_mutex mutex_;
};

class ThreadScheduler : public Scheduler {
 public:
  std::shared_ptr<SerialQueue> serialQueue(const std::string&) override {
    return std::make_shared<internal::ThreadQueue>();
  }
  std::shared_ptr<Semaphore> semaphore(const std::string&) override {
    return std::make_shared<ThreadSemaphore>();
  }
  std::shared_ptr<RecursiveLock> recursiveLock(const std::string&) override {
    return std::make_shared<ThreadLock>();
  }

  // A wake-up per timer costs so little that the leeway is not needed.
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration,
                                        std::function<void()> onFire) override {
    return std::make_shared<internal::ThreadTimer>(first, interval, std::move(onFire));
  }
  void sleep(Duration duration) override { std::this_thread::sleep_for(duration); }
  Duration now() const override { return std::chrono::steady_clock::now().time_since_epoch(); }
};

}  // namespace

std::shared_ptr<Scheduler> threadScheduler() { return std::make_shared<ThreadScheduler>(); }

}  // namespace kwtsdk
