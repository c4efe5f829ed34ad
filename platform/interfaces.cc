// The seams' virtual destructors live here, so that each class has one home for its type information.

#include <kwtsdk/peripheral.h>
#include <kwtsdk/platform.h>

namespace kwtsdk {

Characteristic::~Characteristic() = default;
Peripheral::~Peripheral() = default;
Settings::~Settings() = default;
OpusConverter::~OpusConverter() = default;
Log::~Log() = default;
SerialQueue::~SerialQueue() = default;
Semaphore::~Semaphore() = default;
RecursiveLock::~RecursiveLock() = default;
Timer::~Timer() = default;
Scheduler::~Scheduler() = default;

}  // namespace kwtsdk
