#pragma once

#include <semaphore.h>

namespace kwtsdk::sim::virtual_time {

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

}  // namespace kwtsdk::sim::virtual_time
