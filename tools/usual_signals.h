#pragma once

#include <spawn.h>

namespace kwtsdk::tool {

/// How another program is started: with no signal blocked or ignored, as kwt has them; what becomes of those
/// is that program's own matter.
class UsualSignals {
 public:
  UsualSignals();
  ~UsualSignals();
  UsualSignals(const UsualSignals&) = delete;
  UsualSignals& operator=(const UsualSignals&) = delete;

  /// For posix_spawn.
  const posix_spawnattr_t* get() const { return &attributes_; }

 private:
  posix_spawnattr_t attributes_{};
};

}  // namespace kwtsdk::tool
