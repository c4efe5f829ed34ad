#pragma once

#include <mutex>
#include <utility>

namespace kwtsdk::internal {

/// A value that any thread reads and sets whole.
template <class T>
class SharedField {
 public:
  T get() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }
  void set(T value) {
    const std::lock_guard lock(mutex_);
    std::swap(value_, value);  // the old value is destroyed with the parameter, after the lock
  }

 private:
  mutable std::mutex mutex_;
  T value_{};
};

}  // namespace kwtsdk::internal
