#pragma once

#include <cstdint>
#include <memory>
#include <optional>
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
  bool take(ThreadId caller) KWT_REQUIRES(core_->mutex);

  const std::shared_ptr<Core> core_;
  const std::string name_;
  ThreadId holder_ KWT_GUARDED_BY(core_->mutex) = 0;  // 0: none
  std::uint64_t depth_ KWT_GUARDED_BY(core_->mutex) = 0;
  WaitList waiting_ KWT_GUARDED_BY(core_->mutex);
};

class VirtualSemaphore : public Semaphore {
 public:
  VirtualSemaphore(std::shared_ptr<Core> core, std::string name);
  ~VirtualSemaphore() override;
  void signal() override;
  bool wait(std::optional<Duration> timeout) override;

 private:
  const std::shared_ptr<Core> core_;
  const std::string name_;
  std::uint64_t count_ KWT_GUARDED_BY(core_->mutex) = 0;
  WaitList waiting_ KWT_GUARDED_BY(core_->mutex);
};

}  // namespace kwtsdk::sim::virtual_time
