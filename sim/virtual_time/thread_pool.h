#pragma once

#include <pthread.h>
#include <semaphore.h>

#ifdef __linux__
#include <sched.h>
#endif

// The operating-system threads that simulated ones run on.
namespace kwtsdk::sim::virtual_time {

struct SimThread;

/// Where one thread sleeps until another hands over to it. A POSIX semaphore, because it neither spins (the
/// other thread cannot go on meanwhile) nor touches its memory once the woken thread may have released it.
class Baton {
 public:
  Baton() { sem_init(&semaphore_, 0, 0); }
  ~Baton() { sem_destroy(&semaphore_); }
  Baton(const Baton&) = delete;
  Baton& operator=(const Baton&) = delete;

  void pass() { sem_post(&semaphore_); }
  void receive() {
    while (sem_wait(&semaphore_) != 0) {  // interrupted by a signal
    }
  }

 private:
  sem_t semaphore_;
};

/// Lets a simulated thread run: wakes the operating-system thread that it has, or gives it one. Those are
/// kept from one scheduler to the next, because starting one costs more than most scenarios.
void handOverTo(SimThread& next) noexcept;

/// Keeps the calling thread, and with it all that it hands over to, on the processor it happens to be on, as
/// long as the object lives. Handing over between threads on one processor is about ten times as fast as
/// between two. Where there is no way to say so, or it is refused, it does nothing.
class ProcessorPin {
 public:
  ProcessorPin();
  ~ProcessorPin();
  ProcessorPin(const ProcessorPin&) = delete;
  ProcessorPin& operator=(const ProcessorPin&) = delete;

 private:
#ifdef __linux__
  cpu_set_t before_;
  bool known_;
#endif
};

}  // namespace kwtsdk::sim::virtual_time
