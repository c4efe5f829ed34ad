// Stands for the event loop of a user interface.
#pragma once

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <utility>

/// What is posted runs on the thread that called run(), one after the other. While one runs, the user waits.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;
  using Work = std::function<void()>;

  void post(Work work) {  // any thread
    const std::lock_guard lock(mutex_);
    posted_.push_back(std::move(work));
    changed_.notify_one();
  }
  void quit() {  // what was posted before still runs
    post(nullptr);
  }

  void run() {
    while (Work work = next()) {
      const auto began = Clock::now();
      std::exchange(work, nullptr)();
      longest_ = std::max(longest_, Clock::now() - began);
    }
  }

  /// For which one piece of work kept all others, and the user, waiting.
  Clock::duration longest() const { return longest_; }

 private:
  Work next() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return !posted_.empty(); });
    Work work = std::move(posted_.front());
    posted_.pop_front();
    return work;
  }

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Work> posted_;
  Clock::duration longest_{0};
};
