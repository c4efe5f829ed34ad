#pragma once

#include <functional>
#include <list>
#include <memory>
#include <new>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

/// The facade's recursive lock, under which a command is subscribed for, attached, stored and written.
/// What follows a reply must not fall between another command's subscription and its write, but the thread
/// that delivers replies must never wait for the lock: its holder may be inside a peripheral that waits for
/// just that thread. So such work is left behind, and whoever holds the lock then does it.
class KWT_CAPABILITY("gate") Gate {
 public:
  explicit Gate(Scheduler& scheduler) : lock_(scheduler.recursiveLock("kwt.send")) {}

  class KWT_SCOPED_CAPABILITY Hold {
   public:
    explicit Hold(Gate& gate) KWT_ACQUIRE(gate) : gate_(gate) {
      gate_.lock_->lock();
      ++gate_.depth_;
    }
    ~Hold() KWT_RELEASE() {
      gate_.leave();
      gate_.doWork();
    }
    Hold(const Hold&) = delete;
    Hold& operator=(const Hold&) = delete;

   private:
    Gate& gate_;
  };

  /// Does `work` under the lock, in the order given: now when the lock is free or this thread's, otherwise as
  /// soon as its holder lets go, on the holder's thread. What `work` throws is lost; it is destroyed without
  /// the lock. Never waits. Throws, and has done nothing, where there is no memory for that.
  void whenFree(std::function<void()> work);

  /// Lets go of something that may hold a host's objects, whose destructors may do anything: without the
  /// lock, unless there is no memory left to put that off.
  template <class T>
  void letGo(T thing) noexcept {
    try {
      whenFree([thing = std::move(thing)] {});
    } catch (const std::bad_alloc&) {
      return;
    }
  }

  /// For work given to whenFree, which Clang cannot follow there.
  void assertHeld() const KWT_ASSERT_HELD() {}

 private:
  using Work = std::list<std::function<void()>>;  // nodes move between lists without memory

  void doWork() noexcept;
  void leave() noexcept;
  bool anyWork() const;
  Work takeOne();

  const std::shared_ptr<RecursiveLock> lock_;
  mutable Mutex mutex_;
  Work work_ KWT_GUARDED_BY(mutex_);

  // Of whoever holds the lock: how often, and what is to be destroyed when the last hold ends.
  int depth_ = 0;
  Work done_;
};

}  // namespace kwtsdk::internal
