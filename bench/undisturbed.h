#pragma once

#include <pthread.h>
#include <sched.h>

namespace kwtsdk::bench {

/// Real-time priority for this thread and those it starts, where the system permits it: other programs cannot
/// come between two threads that wake each other, and the scheduler places them the same way each time. Only
/// for what leaves the processors idle or ends within seconds.
class Undisturbed {
 public:
  Undisturbed() {
    pthread_getschedparam(pthread_self(), &policy_, &before_);
    const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_FIFO)};
    pthread_setschedparam(pthread_self(), SCHED_FIFO, &lowest);
  }
  ~Undisturbed() { pthread_setschedparam(pthread_self(), policy_, &before_); }
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;

 private:
  int policy_ = SCHED_OTHER;
  sched_param before_{};
};

}  // namespace kwtsdk::bench
