#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace kwtsdk::bench {

/// Keeps a producer from running ahead of its consumer. Both sides count on their own and meet once a batch,
/// which leaves the pace to them.
class Window {
 public:
  static constexpr std::uint64_t kBatch = 256, kBatches = 8;

  /// Before each packet; false when the consumer has stopped.
  bool enter() { return entered_++ % kBatch != 0 || take(1); }

  /// After each packet.
  void leave() {
    if (++left_ % kBatch != 0) return;
    {
      const std::lock_guard lock(mutex_);
      ++free_;
    }
    freed_.notify_one();
  }

  /// Waits for all that entered, which must be whole batches.
  bool drain() {
    if (!take(kBatches)) return false;
    const std::lock_guard lock(mutex_);
    free_ = kBatches;
    return true;
  }

 private:
  bool take(std::uint64_t batches) {
    std::unique_lock lock(mutex_);
    if (!freed_.wait_for(lock, std::chrono::seconds(20), [&] { return free_ >= batches; })) return false;
    free_ -= batches;
    return true;
  }

  std::uint64_t entered_ = 0;  // the producer's
  std::uint64_t left_ = 0;     // the consumer's
  std::mutex mutex_;
  std::condition_variable freed_;
  std::uint64_t free_ = kBatches;
};

}  // namespace kwtsdk::bench
