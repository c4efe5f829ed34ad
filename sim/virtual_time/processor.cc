#include "sim/virtual_time/processor.h"

namespace kwtsdk::sim::virtual_time {

#ifdef __linux__

ProcessorPin::ProcessorPin()
    : before_(), known_(pthread_getaffinity_np(pthread_self(), sizeof before_, &before_) == 0) {
  if (known_) moveToProcessor(pthread_self(), currentProcessor());
}

ProcessorPin::~ProcessorPin() {
  if (known_) pthread_setaffinity_np(pthread_self(), sizeof before_, &before_);
}

int currentProcessor() { return sched_getcpu(); }

void moveToProcessor(pthread_t thread, int processor) {
  if (processor < 0 || processor >= CPU_SETSIZE) return;
  cpu_set_t only;
  CPU_ZERO(&only);
  CPU_SET(static_cast<unsigned>(processor), &only);
  pthread_setaffinity_np(thread, sizeof only, &only);
}

#else

ProcessorPin::ProcessorPin() = default;
ProcessorPin::~ProcessorPin() = default;
int currentProcessor() { return -1; }
void moveToProcessor(pthread_t, int) {}

#endif

}  // namespace kwtsdk::sim::virtual_time
