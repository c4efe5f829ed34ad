#pragma once

#include <string>

#include <sys/types.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {

/// A system bus of this process's own, for as long as this lives. Create it while there is one thread.
class PrivateBus {
 public:
  enum class Policy { open, noMessagesToBluez };

  explicit PrivateBus(Policy policy = Policy::open);
  ~PrivateBus() { end(); }
  PrivateBus(const PrivateBus&) = delete;
  PrivateBus& operator=(const PrivateBus&) = delete;

  /// Start it again at the same address; kill it.
  void start();
  void end();

 private:
  const TemporaryFolder folder_;
  pid_t process_ = 0;
};

}  // namespace kwtsdk::testing
