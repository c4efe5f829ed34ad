#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

/// What a wait shares with those who end it, but for the value.
class Waiting {
 public:
  Waiting(Scheduler& scheduler, const std::string& name) : semaphore_(scheduler.semaphore(name)) {}

  /// Nobody waits any more: what has not been sent for it need not be.
  bool over() const {
    const MutexLock lock(mutex_);
    return over_;
  }

 protected:
  const std::shared_ptr<Semaphore> semaphore_;
  mutable Mutex mutex_;
  bool over_ KWT_GUARDED_BY(mutex_) = false;
};

/// One wait for one value, which a promise brings. It ends when the last copy of the promise is gone: the
/// command that held it has been released, or dropped. It ends at its time-out at the latest, whatever the
/// thread that holds the promise is doing; a value given by then counts. One per step, first value wins.
template <class T>
class Wait {
  class State : public Waiting {
   public:
    State(Scheduler& scheduler, const std::string& name, T fallback)
        : Waiting(scheduler, name), value_(std::move(fallback)) {}

    void set(T value) {
      const MutexLock lock(mutex_);
      if (over_ || std::exchange(given_, true)) return;
      value_ = std::move(value);
    }
    void end() { semaphore_->signal(); }

    T wait(std::optional<Duration> timeout) {
      semaphore_->wait(timeout);
      const MutexLock lock(mutex_);
      over_ = true;
      return std::move(value_);  // which nothing sets any more
    }

   private:
    bool given_ KWT_GUARDED_BY(mutex_) = false;
    T value_ KWT_GUARDED_BY(mutex_);
  };

 public:
  class Promise {
   public:
    explicit Promise(std::shared_ptr<State> state) : state_(std::move(state)) {}
    ~Promise() { state_->end(); }
    Promise(const Promise&) = delete;
    Promise& operator=(const Promise&) = delete;

    void set(T value) { state_->set(std::move(value)); }

   private:
    const std::shared_ptr<State> state_;
  };

  /// `fallback` is what the wait gives when no value came.
  Wait(Scheduler& scheduler, const std::string& name, T fallback)
      : state_(std::make_shared<State>(scheduler, name, std::move(fallback))) {}

  /// To be asked for once.
  std::shared_ptr<Promise> promise() const { return std::make_shared<Promise>(state_); }
  std::weak_ptr<const Waiting> waiting() const { return state_; }

  /// None: without a time-out.
  T wait(std::optional<Duration> timeout) { return state_->wait(timeout); }

 private:
  const std::shared_ptr<State> state_;
};

}  // namespace kwtsdk::internal
