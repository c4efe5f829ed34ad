#include "sim/virtual_time/thread_pool.h"

#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include <unistd.h>

#include "sim/virtual_time/core.h"
#include "sim/virtual_time/processor.h"
#include "sim/virtual_time/sim_thread.h"

namespace kwtsdk::sim::virtual_time {
namespace {

struct PooledThread {
  Baton baton;
  SimThread* assigned = nullptr;
  pthread_t handle{};
  int processor = -1;
};

class ThreadPool {
 public:
  /// Never destroyed: at process exit its threads are parked in it.
  static ThreadPool& instance() {
    static ThreadPool& pool = *new ThreadPool;
    return pool;
  }

  void start(SimThread& simulated) {
    const std::lock_guard lock(mutex_);
    if (process_ != getpid()) {  // after a fork the parked threads exist in the parent only
      parked_.clear();
      process_ = getpid();
    }
    if (parked_.empty()) addThread();
    PooledThread& thread = *parked_.back();
    parked_.pop_back();
    if (const int processor = currentProcessor(); processor != thread.processor) {
      moveToProcessor(thread.handle, processor);
      thread.processor = processor;
    }
    thread.assigned = &simulated;
    simulated.baton = &thread.baton;
    thread.baton.pass();
  }

 private:
  ThreadPool() = default;

  void addThread() {
    PooledThread& thread = *all_.emplace_back(std::make_unique<PooledThread>());
    std::thread started([this, &thread] { loop(thread); });
    thread.handle = started.native_handle();
    started.detach();
    parked_.push_back(&thread);
  }

  void loop(PooledThread& thread) noexcept {
    for (;;) {
      thread.baton.receive();
      SimThread& next = Core::runToEnd(*thread.assigned);
      // Parked before the hand-over, so that the next simulated thread to begin can have this one.
      {
        const std::lock_guard lock(mutex_);
        parked_.push_back(&thread);
      }
      handOverTo(next);
    }
  }

  std::mutex mutex_;
  std::vector<std::unique_ptr<PooledThread>> all_;
  std::vector<PooledThread*> parked_;
  pid_t process_ = getpid();
};

}  // namespace

void handOverTo(SimThread& next) noexcept {
  if (next.baton != nullptr) {
    next.baton->pass();
  } else {
    ThreadPool::instance().start(next);
  }
}

}  // namespace kwtsdk::sim::virtual_time
