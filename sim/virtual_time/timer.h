#pragma once

#include <functional>
#include <memory>

#include <kwtsdk/scheduler.h>

#include "sim/virtual_time/core.h"

namespace kwtsdk::sim::virtual_time {

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
  struct State;
  class Thread;

  std::shared_ptr<Core> core_;
  std::shared_ptr<State> state_;
};

}  // namespace kwtsdk::sim::virtual_time
