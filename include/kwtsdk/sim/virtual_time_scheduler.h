#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

namespace virtual_time {
class Core;
}

/// A scheduler for tests: waiting costs no time, and the seed alone decides how the threads interleave.
///
/// Simulated threads are real threads, of which exactly one runs at a time. It gives way when it waits and,
/// with a probability that depends on the seed, at preemption points: async, signal, wait, lock, try_lock,
/// unlock, sleep, creation and cancelling of timers, spawn and preemptionPoint(). When no thread can run, the
/// clock jumps to the earliest deadline; what is due at the same instant happens in an order that the seed
/// picks.
///
/// Code under test must not hold a lock from elsewhere (std::mutex) at a preemption point: another simulated
/// thread that wants it would stop the whole process.
///
/// Threads that are not simulated may create objects, submit work, signal, cancel and destroy; the work runs
/// in the next run(), and a queue destroyed there is not waited for. What would block there aborts the
/// process. Queues, semaphores, locks and timers may outlive the scheduler; what is submitted then is
/// dropped.
class KWTSDK_EXPORT VirtualTimeScheduler : public Scheduler {
 public:
  static std::shared_ptr<VirtualTimeScheduler> create(std::uint64_t seed);
  ~VirtualTimeScheduler() override;

  std::uint64_t seed() const;

  /// Runs `body` on this thread as the simulated thread "main". Returns when nothing is left to do: body and
  /// spawned threads have ended, queues are empty, no timer is armed. May be called again. An exception of
  /// `body` is thrown on then. On Linux the thread is kept on one processor meanwhile, which makes switches
  /// cheap.
  void run(const std::function<void()>& body);

  /// Starts another simulated thread of the host. An exception must not leave `body`.
  void spawn(const std::string& name, std::function<void()> body);

  /// Where another simulated thread may go on. Does nothing on other threads.
  void preemptionPoint();

  /// Called when no thread can go on for ever more (deadlock), or when time or step limit shows that the run
  /// would never end. The handler may signal, submit, cancel or spawn so that the run goes on, and must not
  /// block. If still nothing can run, or without a handler, the report goes to standard error and the process
  /// aborts.
  void setDeadlockHandler(std::function<void(const std::string& report)> handler);

  /// The most virtual time of one run. Default: one hour.
  void setTimeLimit(Duration limit);

  /// The most preemption points and switches without the clock moving. Default: ten million.
  void setStepLimit(std::uint64_t limit);

  /// Time, seed, and of each simulated thread what it waits for, since when and until when.
  std::string report() const;

  std::shared_ptr<SerialQueue> serialQueue(const std::string& label) override;
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override;
  std::shared_ptr<RecursiveLock> recursiveLock(const std::string& name) override;
  std::shared_ptr<Timer> repeatingTimer(Duration first, Duration interval, Duration leeway,
                                        std::function<void()> onFire) override;
  void sleep(Duration duration) override;
  Duration now() const override;

 private:
  explicit VirtualTimeScheduler(std::uint64_t seed);

  std::shared_ptr<virtual_time::Core> core_;
};

}  // namespace kwtsdk::sim
