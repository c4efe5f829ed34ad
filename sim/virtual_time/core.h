#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/random.h"
#include "sim/virtual_time/sim_thread.h"

namespace kwtsdk::sim::virtual_time {

/// The simulated threads of one scheduler, their clock, and the choice of who is next. Shared by the
/// scheduler and all it made; run() keeps it alive for the simulated threads.
///
/// The mutex is a leaf, for the sake of threads outside the simulation. No callback is called or destroyed
/// under it.
class Core {
 public:
  using Lock = std::unique_lock<std::mutex>;
  using DeadlockHandler = std::function<void(const std::string& report)>;

  explicit Core(std::uint64_t seed);

  std::uint64_t seed() const { return seed_; }
  Duration now() const { return Duration(now_.load(std::memory_order_relaxed)); }
  void setDeadlockHandler(DeadlockHandler handler);
  void setTimeLimit(Duration limit);
  void setStepLimit(std::uint64_t limit);
  std::string report() const;

  void run(const std::function<void()>& body);

  /// No further run() will come: what waits for one is dropped.
  void close();

  void preemptionPoint();

  /// The calling thread, when it is one of this scheduler's simulated threads.
  SimThread* self() const;

  /// The same; aborts when it is not.
  SimThread& requireSelf(const std::string& operation) const;

  /// Says why, adds the report, aborts. Not under the lock.
  [[noreturn]] void fail(const std::string& message) const;

  Lock lock() const { return Lock(mutex_); }

  // Under the lock:
  bool closed() const { return closed_; }
  bool ending() const { return ending_; }
  Random& random() { return random_; }

  /// Adds a thread that is runnable, or begins when `wait` ends.
  SimThread& add(const std::string& name, std::shared_ptr<Job> job, std::optional<Wait> wait = std::nullopt);

  /// Sleeps until woken or until the deadline, without the lock.
  void block(Lock& lock, SimThread& self, const Wait& wait);
  void wakeOne(WaitList& list);
  void wakeAll(WaitList& list);

  /// Puts the calling thread among the runnable ones and picks any.
  void yield(Lock& lock, SimThread& self);

  /// On its operating-system thread: the whole life of a simulated thread. Gives who is next.
  static SimThread& runToEnd(SimThread& self);

 private:
  void startWaiting(SimThread& thread, const Wait& wait);
  void wake(SimThread& thread);
  std::unique_ptr<SimThread> remove(SimThread& thread);

  void switchFrom(Lock& lock, SimThread& self);
  SimThread& pickNext(Lock& lock);
  bool advanceClock(Lock& lock);
  bool endWhenAllIsDone();
  void countStep(Lock& lock);

  /// Asks the handler for help; returns only if it could be asked.
  void reportTrouble(Lock& lock, const std::string& what);
  void requireRunnable(Lock& lock);

  std::string describe() const;
  std::string describeWait(const Wait& wait) const;
  std::string nameOf(ThreadId id) const;

  const std::uint64_t seed_;
  mutable std::mutex mutex_;
  Random random_;
  const std::uint64_t switchMask_;
  std::atomic<Duration::rep> now_{0};
  std::vector<std::unique_ptr<SimThread>> threads_;  // in the order of creation
  std::vector<SimThread*> runnable_;
  ThreadId lastId_ = 0;
  bool running_ = false;
  bool ending_ = false;
  bool closed_ = false;
  bool inHandler_ = false;
  DeadlockHandler handler_;
  Duration timeLimit_ = std::chrono::hours(1);
  Duration runStart_ = Duration::zero();
  std::uint64_t stepLimit_ = 10'000'000;
  std::uint64_t steps_ = 0;  // since the clock last moved
};

/// `delay` after `now`; none when that is beyond what the clock can show.
std::optional<Duration> deadlineAfter(Duration now, Duration delay);

}  // namespace kwtsdk::sim::virtual_time
