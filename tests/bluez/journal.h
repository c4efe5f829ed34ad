#pragma once

#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::testing {

/// What happened, in order, on whatever thread.
class Journal {
 public:
  explicit Journal(Scheduler& scheduler) : added_(scheduler.semaphore("journal")) {}

  void add(std::string line) {
    const internal::MutexLock lock(mutex_);
    lines_.push_back(std::move(line));
    added_->signal();
  }

  /// Waits for this line, after the one last waited for. One thread.
  bool await(const std::string& line) {
    do {
      const internal::MutexLock lock(mutex_);
      while (read_ < lines_.size()) {
        if (lines_[read_++] == line) return true;
      }
    } while (added_->wait(std::chrono::seconds(20)));
    return false;
  }

  std::vector<std::string> take() {
    const internal::MutexLock lock(mutex_);
    read_ = 0;
    return std::exchange(lines_, {});
  }

 private:
  const std::shared_ptr<Semaphore> added_;
  internal::Mutex mutex_;
  std::vector<std::string> lines_ KWT_GUARDED_BY(mutex_);
  std::size_t read_ KWT_GUARDED_BY(mutex_) = 0;
};

}  // namespace kwtsdk::testing
