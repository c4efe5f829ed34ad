#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {

class VirtualQueue : public SerialQueue {
 public:
  VirtualQueue(std::shared_ptr<Core> core, std::string label);
  ~VirtualQueue() override;
  void async(std::function<void()> work) override;

 private:
  class Worker;

  std::shared_ptr<Core> core_;
  std::shared_ptr<Worker> worker_;
};

}  // namespace kwtsdk::sim::virtual_time
