#include <algorithm>
#include <chrono>
#include <list>
#include <thread>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk {
namespace {

using internal::Condition, internal::Mutex, internal::MutexLock;
using Clock = std::chrono::steady_clock;

/// A serial queue on a thread of its own, started by the first work.
class ThreadQueue : public SerialQueue {
 public:
  ~ThreadQueue() override;
  void async(std::function<void()> work) override;

 private:
  using Works = std::list<std::function<void()>>;  // of which an empty one takes no memory

  // Shared with the thread, which may outlive the queue when its own work destroys it.
  struct State {
    Mutex mutex;
    Condition ready;
    Works works KWT_GUARDED_BY(mutex);
    bool closed KWT_GUARDED_BY(mutex) = false;
    std::thread thread KWT_GUARDED_BY(mutex);

    /// Waits for work; empty when the queue is closed.
    std::function<void()> next() KWT_EXCLUDES(mutex);
  };

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

ThreadQueue::~ThreadQueue() {
  Works dropped;
  std::thread thread;
  {
    const MutexLock lock(state_->mutex);
    state_->closed = true;
    dropped.swap(state_->works);
    thread.swap(state_->thread);
  }
  state_->ready.notifyOne();
  dropped.clear();  // without the lock: it may hold anything, also what the thread waits for
  if (!thread.joinable()) return;
  if (thread.get_id() == std::this_thread::get_id()) {
    thread.detach();
  } else {
    thread.join();
  }
}

void ThreadQueue::async(std::function<void()> work) {
  {
    const MutexLock lock(state_->mutex);
    // First: where no thread can be had, the work must not stay behind for a later one.
    if (!state_->thread.joinable()) {
      state_->thread = std::thread([state = state_] {
        while (const auto next = state->next()) next();  // destroyed here, too: with it the queue may go
      });
    }
    state_->works.push_back(std::move(work));
  }
  state_->ready.notifyOne();
}

std::function<void()> ThreadQueue::State::next() {
  const MutexLock lock(mutex);
  while (!closed && works.empty()) ready.wait(mutex);
  if (closed) return nullptr;
  std::function<void()> work = std::move(works.front());
  works.pop_front();
  return work;
}

/// A repeating timer on a thread of its own, which ends by itself after the cancellation.
class ThreadTimer : public Timer {
 public:
  ThreadTimer(Duration first, Duration interval, std::function<void()> onFire) {
    std::thread([state = state_, first, interval, onFire = std::move(onFire)] {
      for (auto due = Clock::now() + first; state->waitUntil(due);) {
        onFire();
        // Fires missed while the process stood still become one: a burst would find no data between two.
        due = std::max(due + interval, Clock::now());
      }
    }).detach();
  }
  ~ThreadTimer() override { ThreadTimer::cancel(); }

  void cancel() override {
    {
      const MutexLock lock(state_->mutex);
      state_->cancelled = true;
    }
    state_->changed.notifyOne();
  }

 private:
  struct State {
    Mutex mutex;
    Condition changed;
    bool cancelled KWT_GUARDED_BY(mutex) = false;

    /// False when it was cancelled.
    bool waitUntil(Clock::time_point due) KWT_EXCLUDES(mutex) {
      const MutexLock lock(mutex);
      while (!cancelled && changed.waitUntil(mutex, due)) {
      }
      return !cancelled;
    }
  };

  const std::shared_ptr<State> state_ = std::make_shared<State>();
};

class ThreadSemaphore : public Semaphore {
 public:
  void signal() override {
    {
      const MutexLock lock(mutex_);
      ++count_;
    }
    signalled_.notifyOne();
  }

  bool wait(std::optional<Duration> timeout) override {
    const auto due = Clock::now() + timeout.value_or(Duration::zero());
    const MutexLock lock(mutex_);
    while (count_ == 0) {
      if (!timeout) {
        signalled_.wait(mutex_);
      } else if (!signalled_.waitUntil(mutex_, due) && count_ == 0) {
        return false;
      }
    }
    --count_;
    return true;
  }

 private:
  Mutex mutex_;
  Condition signalled_;
  std::uint64_t count_ KWT_GUARDED_BY(mutex_) = 0;
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
    return std::make_shared<ThreadQueue>();
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
    return std::make_shared<ThreadTimer>(first, interval, std::move(onFire));
  }
  void sleep(Duration duration) override { std::this_thread::sleep_for(duration); }
  Duration now() const override { return Clock::now().time_since_epoch(); }
};

}  // namespace

std::shared_ptr<Scheduler> threadScheduler() { return std::make_shared<ThreadScheduler>(); }

}  // namespace kwtsdk
