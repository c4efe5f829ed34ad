#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace kwtsdk::bench {

/// The least that passing work to another thread takes. Not the library's own queue: a yardstick must not
/// get slower together with what it measures.
class HandOff {
 public:
  HandOff() : thread_([this] { run(); }) {}
  ~HandOff() {
    push(nullptr);
    thread_.join();
  }

  void push(std::function<void()> work) {
    {
      const std::lock_guard lock(mutex_);
      work_.push_back(std::move(work));
    }
    ready_.notify_one();
  }

 private:
  void run() {
    while (true) {
      std::unique_lock lock(mutex_);
      ready_.wait(lock, [this] { return !work_.empty(); });
      const auto work = std::move(work_.front());
      work_.pop_front();
      lock.unlock();
      if (!work) return;
      work();
    }
  }

  std::mutex mutex_;
  std::condition_variable ready_;
  std::deque<std::function<void()>> work_;
  std::thread thread_;
};

}  // namespace kwtsdk::bench
