#pragma once

#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/core.h"

// What runs callbacks on a simulated thread of its own.
namespace kwtsdk::sim::virtual_time {

class VirtualQueue : public SerialQueue {
 public:
  VirtualQueue(std::shared_ptr<Core> core, std::string label);
  ~VirtualQueue() override;
  void async(std::function<void()> work) override;

 private:
  class Worker;

  const std::shared_ptr<Core> core_;
  const std::shared_ptr<Worker> worker_;
};

struct TimerSchedule {
  Duration first;
  Duration interval;
  Duration leeway;
};

class VirtualTimer : public Timer {
 public:
  VirtualTimer(std::shared_ptr<Core> core, const TimerSchedule& schedule, std::function<void()> onFire);
  ~VirtualTimer() override;
  void cancel() override;

 private:
  class Ticker;

  const std::shared_ptr<Core> core_;
  const std::shared_ptr<Ticker> ticker_;
};

}  // namespace kwtsdk::sim::virtual_time
