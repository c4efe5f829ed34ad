#pragma once

namespace kwtsdk::testing {

/// While it lives, what this program writes never reaches the disk, and fsync() says so.
class FailingSync {
 public:
  FailingSync();
  ~FailingSync();
  FailingSync(const FailingSync&) = delete;
  FailingSync& operator=(const FailingSync&) = delete;
};

}  // namespace kwtsdk::testing
