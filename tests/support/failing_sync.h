#pragma once

#include <atomic>

namespace kwtsdk::testing {

/// While it lives, what this program writes never reaches the disk, and fsync() says so.
class FailingSync {
 public:
  FailingSync() { isFailing = true; }
  ~FailingSync() { isFailing = false; }
  FailingSync(const FailingSync&) = delete;
  FailingSync& operator=(const FailingSync&) = delete;

  static inline std::atomic<bool> isFailing{false};
};

}  // namespace kwtsdk::testing
