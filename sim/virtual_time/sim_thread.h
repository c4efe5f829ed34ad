#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/baton.h"

namespace kwtsdk::sim::virtual_time {

class Core;
struct SimThread;

using ThreadId = std::uint64_t;
using WaitList = std::vector<SimThread*>;

/// What a simulated thread does. Destroyed on that thread while it is still simulated.
class Job {
 public:
  virtual ~Job() = default;
  virtual void run() = 0;

  /// Instead of run(), when that will never come.
  virtual void abandon() {}
};

enum class WaitKind { semaphore, lock, sleep, timer, idleQueue, queueEnd, runEnd };

struct Wait {
  WaitKind kind;
  const std::string* name = nullptr;
  WaitList* list = nullptr;  // those who wait for the same
  std::optional<Duration> deadline = std::nullopt;
  const ThreadId* holder = nullptr;  // of the lock
  Duration since = Duration::zero();
};

/// One simulated thread. An operating-system thread is taken for it when it first gets its turn.
struct SimThread {
  Core& core;
  ThreadId id;
  std::string name;
  std::shared_ptr<Job> job;
  Baton* baton = nullptr;    // none: not begun
  std::optional<Wait> wait;  // none: running or runnable
};

}  // namespace kwtsdk::sim::virtual_time
