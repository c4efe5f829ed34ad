#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {

class VirtualLock : public RecursiveLock {
 public:
  VirtualLock(std::shared_ptr<Core> core, std::string name);
  ~VirtualLock() override;
  void lock() override;
  bool try_lock() override;
  void unlock() override;

 private:
  ThreadId caller() const;
  bool take(ThreadId caller);

  std::shared_ptr<Core> core_;
  const std::string name_;
  ThreadId holder_ = 0;  // 0: none
  std::uint64_t depth_ = 0;
  WaitList waiting_;
};

}  // namespace kwtsdk::sim::virtual_time
