#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "sim/virtual_time/random.h"

namespace kwtsdk::sim::virtual_time {

using internal::Mutex;
using internal::MutexLock;

class Baton;
class Core;
struct SimThread;

using ThreadId = std::uint64_t;
using WaitList = std::vector<SimThread*>;

/// What a simulated thread does. Destroyed on that thread while it is still simulated.
class ThreadBody {
 public:
  virtual ~ThreadBody() = default;
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

/// One simulated thread. An operating-system thread is taken for it when it first gets its turn. Its core,
/// which owns it, touches the two last fields under its mutex alone.
struct SimThread {
  Core& core;
  const ThreadId id;
  const std::string name;
  std::shared_ptr<ThreadBody> body;
  Baton* baton = nullptr;    // none: not begun
  std::optional<Wait> wait;  // none: running or runnable
};

/// The simulated threads of one scheduler, their clock, and the choice of who is next. Shared by the
/// scheduler and all it made; run() keeps it alive for the simulated threads.
class Core {
 public:
  using DeadlockHandler = std::function<void(const std::string& report)>;

  explicit Core(std::uint64_t seed);

  std::uint64_t seed() const { return seed_; }
  Duration now() const { return Duration(now_.load(std::memory_order_relaxed)); }
  void setDeadlockHandler(DeadlockHandler handler) KWT_EXCLUDES(mutex);
  void setTimeLimit(Duration limit) KWT_EXCLUDES(mutex);
  void setStepLimit(std::uint64_t limit) KWT_EXCLUDES(mutex);
  std::string report() const KWT_EXCLUDES(mutex);

  void run(const std::function<void()>& body) KWT_EXCLUDES(mutex);

  /// No further run() will come: what waits for one is dropped.
  void close() KWT_EXCLUDES(mutex);

  void preemptionPoint() KWT_EXCLUDES(mutex);

  /// The calling thread, when it is one of this scheduler's simulated threads.
  SimThread* self() const;

  /// The same; aborts when it is not.
  SimThread& requireSelf(const std::string& operation) const KWT_EXCLUDES(mutex);

  /// Says why, adds the report, aborts.
  [[noreturn]] void fail(const std::string& message) const KWT_REQUIRES(mutex);

  /// Of everything simulated, also of the queues and locks that hold this core. A leaf, for the sake of
  /// threads outside the simulation: no callback is called or destroyed under it.
  mutable Mutex mutex;

  bool closed() const KWT_REQUIRES(mutex) { return closed_; }
  bool ending() const KWT_REQUIRES(mutex) { return ending_; }
  Random& random() KWT_REQUIRES(mutex) { return random_; }

  /// Adds a thread that is runnable, or begins when `wait` ends.
  SimThread& add(const std::string& name, std::shared_ptr<ThreadBody> body,
                 std::optional<Wait> wait = std::nullopt) KWT_REQUIRES(mutex);

  /// Sleeps until woken or until the deadline, without the mutex.
  void block(SimThread& self, const Wait& wait) KWT_REQUIRES(mutex);
  void wakeOne(WaitList& list) KWT_REQUIRES(mutex);
  void wakeAll(WaitList& list) KWT_REQUIRES(mutex);

  /// Puts the calling thread among the runnable ones and picks any.
  void yield(SimThread& self) KWT_REQUIRES(mutex);

  /// On its operating-system thread: the whole life of a simulated thread. Gives who is next.
  SimThread& runToEnd(SimThread& self) KWT_EXCLUDES(mutex);

 private:
  SimThread& addMain(Baton& baton) KWT_EXCLUDES(mutex);
  void waitForTheOthers(SimThread& main) KWT_EXCLUDES(mutex);

  void startWaiting(SimThread& thread, const Wait& wait) KWT_REQUIRES(mutex);
  void wake(SimThread& thread) KWT_REQUIRES(mutex);
  std::unique_ptr<SimThread> remove(SimThread& thread) KWT_REQUIRES(mutex);

  void switchFrom(SimThread& self) KWT_REQUIRES(mutex);
  SimThread& pickNext() KWT_REQUIRES(mutex);
  bool advanceClock() KWT_REQUIRES(mutex);
  bool endWhenAllIsDone() KWT_REQUIRES(mutex);
  void countStep() KWT_REQUIRES(mutex);

  /// Without the mutex; fails where there is no handler.
  void callDeadlockHandler(const std::string& reason) KWT_REQUIRES(mutex);
  void requireRunnable() KWT_REQUIRES(mutex);

  std::string describe() const KWT_REQUIRES(mutex);
  std::string describeWait(const Wait& wait) const KWT_REQUIRES(mutex);
  std::string nameOf(ThreadId id) const KWT_REQUIRES(mutex);

  const std::uint64_t seed_;
  const std::uint64_t switchMask_;
  std::atomic<Duration::rep> now_{0};  // set under the mutex

  Random random_ KWT_GUARDED_BY(mutex);
  std::vector<std::unique_ptr<SimThread>> threads_ KWT_GUARDED_BY(mutex);  // in the order of creation
  std::vector<SimThread*> runnable_ KWT_GUARDED_BY(mutex);
  ThreadId lastId_ KWT_GUARDED_BY(mutex) = 0;
  bool running_ KWT_GUARDED_BY(mutex) = false;
  bool ending_ KWT_GUARDED_BY(mutex) = false;
  bool closed_ KWT_GUARDED_BY(mutex) = false;
  bool inHandler_ KWT_GUARDED_BY(mutex) = false;
  DeadlockHandler handler_ KWT_GUARDED_BY(mutex);
  Duration timeLimit_ KWT_GUARDED_BY(mutex) = std::chrono::hours(1);
  Duration runStart_ KWT_GUARDED_BY(mutex) = Duration::zero();
  std::uint64_t stepLimit_ KWT_GUARDED_BY(mutex) = 10'000'000;
  std::uint64_t steps_ KWT_GUARDED_BY(mutex) = 0;  // since the clock last moved
};

/// `delay` after `now`; none when that is beyond what the clock can show.
std::optional<Duration> deadlineAfter(Duration now, Duration delay);

}  // namespace kwtsdk::sim::virtual_time
