#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {

class VirtualSemaphore : public Semaphore {
 public:
  VirtualSemaphore(std::shared_ptr<Core> core, std::string name);
  ~VirtualSemaphore() override;
  void signal() override;
  bool wait(std::optional<Duration> timeout) override;

 private:
  std::shared_ptr<Core> core_;
  const std::string name_;
  std::uint64_t count_ = 0;
  WaitList waiting_;
};

}  // namespace kwtsdk::sim::virtual_time
