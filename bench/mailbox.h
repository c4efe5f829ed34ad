#pragma once

#include <condition_variable>
#include <mutex>
#include <utility>

namespace kwtsdk::bench {

/// One thread's letter box: the least that waking another thread takes.
class Mailbox {
 public:
  enum class Letter { none, token, end };

  void put(Letter letter) {
    {
      const std::lock_guard lock(mutex_);
      letter_ = letter;
    }
    arrived_.notify_one();
  }
  Letter take() {
    std::unique_lock lock(mutex_);
    arrived_.wait(lock, [this] { return letter_ != Letter::none; });
    return std::exchange(letter_, Letter::none);
  }

 private:
  std::mutex mutex_;
  std::condition_variable arrived_;
  Letter letter_ = Letter::none;
};

}  // namespace kwtsdk::bench
