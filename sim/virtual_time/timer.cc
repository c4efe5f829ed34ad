#include "sim/virtual_time/timer.h"

#include <algorithm>
#include <string>
#include <utility>

namespace kwtsdk::sim::virtual_time {

/// What the timer and its thread share. Under the core's lock.
struct VirtualTimer::State {
  bool cancelled = false;
  WaitList armed;
};

class VirtualTimer::Thread : public Job {
 public:
  Thread(Core& core, std::shared_ptr<State> state, const TimerSchedule& schedule,
         std::function<void()> onFire)
      : core_(core),
        state_(std::move(state)),
        due_(deadlineAfter(core.now(), std::max(schedule.first, Duration::zero()))),
        interval_(std::max(schedule.interval, Duration::zero())),
        leeway_(std::max(schedule.leeway, Duration::zero())),
        onFire_(std::move(onFire)) {}

  /// Decides when the next fire is, which wait() is until.
  void arm() { fireAt_ = due_ ? deadlineAfter(*due_, lateness()) : due_; }
  Wait wait() const { return {.kind = WaitKind::timer, .list = &state_->armed, .deadline = fireAt_}; }

  void run() override {
    Core::Lock lock = core_.lock();
    while (!state_->cancelled) {
      if (!fireAt_ || core_.now() < *fireAt_) {
        core_.block(lock, *core_.self(), wait());
        continue;
      }
      lock.unlock();
      onFire_();
      lock.lock();
      scheduleNext();
    }
  }

 private:
  // Half of the fires are on time and a quarter as late as they may be: that is where order turns.
  Duration lateness() {
    if (leeway_ == Duration::zero()) return leeway_;
    const std::uint64_t choice = core_.random().below(4);
    if (choice < 2) return Duration::zero();
    if (choice == 2) return leeway_;
    return Duration(core_.random().below(static_cast<std::uint64_t>(leeway_.count())));
  }

  // Late fires do not shift the later ones; those missed while one lasted become one.
  void scheduleNext() {
    due_ = deadlineAfter(*due_, interval_);
    if (due_ && *due_ < core_.now()) {
      const Duration late = core_.now() - *due_;
      due_ = interval_ == Duration::zero() ? core_.now() : *due_ + late / interval_ * interval_;
    }
    arm();
  }

  Core& core_;  // alive as long as a run is
  std::shared_ptr<State> state_;
  std::optional<Duration> due_;
  std::optional<Duration> fireAt_;
  const Duration interval_;
  const Duration leeway_;
  const std::function<void()> onFire_;
};

VirtualTimer::VirtualTimer(std::shared_ptr<Core> core, const TimerSchedule& schedule,
                           std::function<void()> onFire)
    : core_(std::move(core)), state_(std::make_shared<State>()) {
  {
    const auto thread = std::make_shared<Thread>(*core_, state_, schedule, std::move(onFire));
    const Core::Lock lock = core_->lock();
    thread->arm();
    if (!core_->closed()) core_->add("timer", thread, thread->wait());
  }
  core_->preemptionPoint();
}

VirtualTimer::~VirtualTimer() { VirtualTimer::cancel(); }

void VirtualTimer::cancel() {
  Core& core = *core_;
  core.preemptionPoint();
  {
    const Core::Lock lock = core.lock();
    if (state_->cancelled) return;
    state_->cancelled = true;
    core.wakeAll(state_->armed);
  }
  core.preemptionPoint();
}

}  // namespace kwtsdk::sim::virtual_time
