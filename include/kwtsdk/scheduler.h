#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk {

using Duration = std::chrono::nanoseconds;

/// Runs work one piece at a time, in the order submitted, on a thread of its own.
/// Destroying a queue whose thread is another's waits for that thread to end; work not yet begun is dropped.
/// Destroyed by its own work, it ends when that work returns.
class KWTSDK_EXPORT SerialQueue {
 public:
  virtual ~SerialQueue() = default;

  /// Submits work and returns at once. An exception must not leave the work. Any thread.
  virtual void async(std::function<void()> work) = 0;
};

/// A counting semaphore. Any thread. Whoever signals holds a reference of its own: a waiter may go on, and
/// release its own, before signal has returned.
class KWTSDK_EXPORT Semaphore {
 public:
  virtual ~Semaphore() = default;
  virtual void signal() = 0;

  /// Blocks until signalled, at most `timeout` from now (none: without limit). False: the time ran out.
  virtual bool wait(std::optional<Duration> timeout) = 0;
};

/// A lock that its holder may take again; works with std::unique_lock.
class KWTSDK_EXPORT RecursiveLock {
 public:
  virtual ~RecursiveLock() = default;
  virtual void lock() = 0;
  virtual bool try_lock() = 0;
  virtual void unlock() = 0;
};

/// What repeatingTimer hands back. Destroying it cancels it.
class KWTSDK_EXPORT Timer {
 public:
  virtual ~Timer() = default;

  /// No fire begins after this; one that is running goes on. Never waits for it. Any thread, also inside the
  /// fire.
  virtual void cancel() = 0;
};

/// The seam through which everything passes that takes time, waits or runs elsewhere. Every operation may be
/// called on any thread. Names and labels appear in reports about threads that wait.
class KWTSDK_EXPORT Scheduler {
 public:
  virtual ~Scheduler() = default;
  virtual std::shared_ptr<SerialQueue> serialQueue(const std::string& label) = 0;
  virtual std::shared_ptr<Semaphore> semaphore(const std::string& name) = 0;  // starts at 0
  virtual std::shared_ptr<RecursiveLock> recursiveLock(const std::string& name) = 0;

  /// Fires `first` from now, then every `interval`, each at most `leeway` late by choice, until cancelled.
  /// Fires of one timer never overlap, and fires missed become one. An exception must not leave `onFire`.
  virtual std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                                std::function<void()> onFire) = 0;

  /// Blocks the calling thread.
  virtual void sleep(Duration duration) = 0;

  /// A clock that never goes back; its zero means nothing.
  virtual Duration now() const = 0;
};

/// Real threads and the machine's monotonic clock. Waiting threads use no processor time.
KWTSDK_EXPORT std::shared_ptr<Scheduler> threadScheduler();

}  // namespace kwtsdk
