#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>

// Which lock guards what, for Clang to check (-Wthread-safety). Other compilers see nothing.
#if defined(__clang__)
#define KWT_THREAD_SAFETY(attribute) __attribute__((attribute))
#else
#define KWT_THREAD_SAFETY(attribute)
#endif
#define KWT_CAPABILITY(name) KWT_THREAD_SAFETY(capability(name))
#define KWT_SCOPED_CAPABILITY KWT_THREAD_SAFETY(scoped_lockable)
#define KWT_GUARDED_BY(...) KWT_THREAD_SAFETY(guarded_by(__VA_ARGS__))
#define KWT_REQUIRES(...) KWT_THREAD_SAFETY(requires_capability(__VA_ARGS__))
#define KWT_EXCLUDES(...) KWT_THREAD_SAFETY(locks_excluded(__VA_ARGS__))
#define KWT_ACQUIRE(...) KWT_THREAD_SAFETY(acquire_capability(__VA_ARGS__))
#define KWT_TRY_ACQUIRE(...) KWT_THREAD_SAFETY(try_acquire_capability(__VA_ARGS__))
#define KWT_RELEASE(...) KWT_THREAD_SAFETY(release_capability(__VA_ARGS__))
#define KWT_ASSERT_HELD(...) KWT_THREAD_SAFETY(assert_capability(__VA_ARGS__))

namespace kwtsdk::internal {

/// A std::mutex that Clang can follow. A leaf: nothing that waits or calls out runs under it.
class KWT_CAPABILITY("mutex") Mutex {
 public:
  void lock() KWT_ACQUIRE() { mutex_.lock(); }
  bool try_lock() KWT_TRY_ACQUIRE(true) { return mutex_.try_lock(); }
  void unlock() KWT_RELEASE() { mutex_.unlock(); }

 private:
  friend class Condition;
  std::mutex mutex_;
};

class KWT_SCOPED_CAPABILITY MutexLock {
 public:
  explicit MutexLock(Mutex& mutex) KWT_ACQUIRE(mutex) : mutex_(mutex) { mutex_.lock(); }
  ~MutexLock() KWT_RELEASE() { mutex_.unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex& mutex_;
};

/// A condition variable for a Mutex. Waits may end for no reason: look at what was waited for.
class Condition {
 public:
  void notifyOne() { condition_.notify_one(); }

  void wait(Mutex& held) KWT_REQUIRES(held) {
    std::unique_lock lock(held.mutex_, std::adopt_lock);
    condition_.wait(lock);
    lock.release();
  }

  /// False when the time has come.
  bool waitUntil(Mutex& held, std::chrono::steady_clock::time_point time) KWT_REQUIRES(held) {
    std::unique_lock lock(held.mutex_, std::adopt_lock);
    const bool early = condition_.wait_until(lock, time) == std::cv_status::no_timeout;
    lock.release();
    return early;
  }

 private:
  std::condition_variable condition_;
};

/// A value that any thread reads and sets whole.
template <class T>
class SharedField {
 public:
  T get() const KWT_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    return value_;
  }
  void set(T value) KWT_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    std::swap(value_, value);  // the old value is destroyed with the parameter, after the lock
  }
  T exchange(T value) KWT_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    std::swap(value_, value);
    return value;
  }

  /// Replaces the value by an empty one if it is this one.
  bool clearIf(const T& value) KWT_EXCLUDES(mutex_) {
    T removed{};
    const MutexLock lock(mutex_);
    if (value_ != value) return false;
    std::swap(value_, removed);
    return true;
  }

 private:
  mutable Mutex mutex_;
  T value_ KWT_GUARDED_BY(mutex_){};
};

}  // namespace kwtsdk::internal
