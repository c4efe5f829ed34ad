#include "sim/virtual_time/thread_pool.h"

#include <unistd.h>

#include <memory>
#include <thread>
#include <vector>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {

namespace {

#ifdef __linux__

/// Of the calling thread.
int currentProcessor() { return sched_getcpu(); }

void moveToProcessor(pthread_t thread, int processor) {
  if (processor < 0 || processor >= CPU_SETSIZE) return;
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<unsigned>(processor), &only);
  pthread_setaffinity_np(thread, sizeof only, &only);
}

#else

int currentProcessor() { return -1; }
void moveToProcessor(pthread_t, int) {}

#endif

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

  void start(SimThread& simulated) KWT_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
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

  void addThread() KWT_REQUIRES(mutex_) {
    PooledThread& thread = *all_.emplace_back(std::make_unique<PooledThread>());
    std::thread started([this, &thread] { loop(thread); });
    thread.handle = started.native_handle();
    started.detach();
    parked_.push_back(&thread);
  }

  void loop(PooledThread& thread) noexcept KWT_EXCLUDES(mutex_) {
    for (;;) {
      thread.baton.receive();
      SimThread& simulated = *thread.assigned;
      SimThread& next = simulated.core.runToEnd(simulated);
      // Parked before the hand-over, so that the next simulated thread to begin can have this one.
      park(thread);
      handOverTo(next);
    }
  }

  void park(PooledThread& thread) KWT_EXCLUDES(mutex_) {
    const MutexLock lock(mutex_);
    parked_.push_back(&thread);
  }

  Mutex mutex_;
  std::vector<std::unique_ptr<PooledThread>> all_ KWT_GUARDED_BY(mutex_);
  std::vector<PooledThread*> parked_ KWT_GUARDED_BY(mutex_);
  pid_t process_ KWT_GUARDED_BY(mutex_) = getpid();
};

}  // namespace

void handOverTo(SimThread& next) noexcept {
  if (next.baton != nullptr) {
    next.baton->pass();
  } else {
    ThreadPool::instance().start(next);
  }
}

#ifdef __linux__

ProcessorPin::ProcessorPin()
    : before_(), known_(pthread_getaffinity_np(pthread_self(), sizeof before_, &before_) == 0) {
  if (known_) moveToProcessor(pthread_self(), currentProcessor());
}

ProcessorPin::~ProcessorPin() {
  if (known_) pthread_setaffinity_np(pthread_self(), sizeof before_, &before_);
}

#else

ProcessorPin::ProcessorPin() = default;
ProcessorPin::~ProcessorPin() = default;

#endif

}  // namespace kwtsdk::sim::virtual_time
