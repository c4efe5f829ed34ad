#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::internal {

/// The facade's recursive lock, under which a command is subscribed for, attached, stored and written.
/// A reply's clean-up must not fall between another command's subscription and its write, but the thread that
/// delivers replies must never wait for the lock: its holder may be inside a peripheral that waits for just
/// that thread. So the clean-up is left behind, and whoever holds the lock then runs it.
class SendGate {
 public:
  explicit SendGate(Scheduler& scheduler) : lock_(scheduler.recursiveLock("kwt.send")) {}

  class Hold {
   public:
    explicit Hold(SendGate& gate) : gate_(gate) { gate_.lock_->lock(); }
    ~Hold() {
      gate_.lock_->unlock();
      gate_.runLeftBehind();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    SendGate& gate_;
  };

  /// Runs `cleanUp` under the lock: now when it is free or this thread's, otherwise as soon as its holder
  /// lets go, on the holder's thread. `cleanUp` must not throw. Never waits.
  void whenFree(std::function<void()> cleanUp);

 private:
  void runLeftBehind();
  std::function<void()> takeOne();
  bool anyLeftBehind() const;

  const std::shared_ptr<RecursiveLock> lock_;
  mutable std::mutex mutex_;
  std::deque<std::function<void()>> leftBehind_;
};

}  // namespace kwtsdk::internal
