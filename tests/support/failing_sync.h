#pragma once

#include <atomic>

namespace kwtsdk::testing {

/// While it lives, what this program writes, or the names alone that it gives, never reaches the disk, and
/// fsync() says so.
class FailingSync {
 public:
  enum class Of { none, folders, everything };
  explicit FailingSync(Of of = Of::everything) { failing = of; }
  ~FailingSync() { failing = Of::none; }
  FailingSync(const FailingSync&) = delete;
  FailingSync& operator=(const FailingSync&) = delete;

  static inline std::atomic<Of> failing{Of::none};
};

}  // namespace kwtsdk::testing
