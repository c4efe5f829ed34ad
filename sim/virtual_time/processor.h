#pragma once

#include <pthread.h>

#ifdef __linux__
#include <sched.h>
#endif

namespace kwtsdk::sim::virtual_time {

// Handing over between threads on one processor is about ten times as fast as between two. Where there is no
// way to say so, or it is refused, all of this does nothing.

/// Keeps the calling thread on the processor it happens to be on, as long as the object lives.
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

/// The processor of the calling thread; -1 when unknown.
int currentProcessor();

void moveToProcessor(pthread_t thread, int processor);

}  // namespace kwtsdk::sim::virtual_time
