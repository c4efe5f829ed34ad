#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// The connections that this process has asked BlueZ to end, by the device's address. Whoever connects waits
/// for their end: until BlueZ has carried it out the device counts as connected, and a Disconnect that
/// arrives late ends the connection made meanwhile. Any thread.
class Departures {
 public:
  /// Shared by all devices of the process, which need not know of each other.
  static std::shared_ptr<Departures> ofThisProcess();

  void begin(const std::string& address);
  void end(const std::string& address);

  /// Waits until none of this address is under way. False: not within the limit.
  bool await(Scheduler& scheduler, const std::string& address, Duration limit);

 private:
  struct UnderWay {
    int count = 0;
    std::vector<std::shared_ptr<Semaphore>> waiters;
  };

  internal::Mutex mutex_;
  std::map<std::string, UnderWay> underWay_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::bluez
