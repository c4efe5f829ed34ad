#include <utility>

#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "sim/virtual_time/core.h"
#include "sim/virtual_time/lock.h"
#include "sim/virtual_time/queue.h"
#include "sim/virtual_time/semaphore.h"
#include "sim/virtual_time/timer.h"

namespace kwtsdk::sim {
namespace {

class HostThread : public virtual_time::Job {
 public:
  explicit HostThread(std::function<void()> body) : body_(std::move(body)) {}
  void run() override { body_(); }

 private:
  const std::function<void()> body_;
};

}  // namespace

std::shared_ptr<VirtualTimeScheduler> VirtualTimeScheduler::create(std::uint64_t seed) {
  return std::shared_ptr<VirtualTimeScheduler>(new VirtualTimeScheduler(seed));
}

VirtualTimeScheduler::VirtualTimeScheduler(std::uint64_t seed)
    : core_(std::make_shared<virtual_time::Core>(seed)) {}

VirtualTimeScheduler::~VirtualTimeScheduler() { core_->close(); }

std::uint64_t VirtualTimeScheduler::seed() const { return core_->seed(); }

void VirtualTimeScheduler::run(const std::function<void()>& body) {
  const auto core = core_;
  core->run(body);
}

void VirtualTimeScheduler::spawn(const std::string& name, std::function<void()> body) {
  {
    const auto thread = std::make_shared<HostThread>(std::move(body));
    const auto lock = core_->lock();
    core_->add(name, thread);
  }
  core_->preemptionPoint();
}

void VirtualTimeScheduler::preemptionPoint() { core_->preemptionPoint(); }

void VirtualTimeScheduler::setDeadlockHandler(std::function<void(const std::string& report)> handler) {
  core_->setDeadlockHandler(std::move(handler));
}

void VirtualTimeScheduler::setTimeLimit(Duration limit) { core_->setTimeLimit(limit); }

void VirtualTimeScheduler::setStepLimit(std::uint64_t limit) { core_->setStepLimit(limit); }

std::string VirtualTimeScheduler::report() const { return core_->report(); }

std::shared_ptr<SerialQueue> VirtualTimeScheduler::serialQueue(const std::string& label) {
  return std::make_shared<virtual_time::VirtualQueue>(core_, label);
}

std::shared_ptr<Semaphore> VirtualTimeScheduler::semaphore(const std::string& name) {
  return std::make_shared<virtual_time::VirtualSemaphore>(core_, name);
}

std::shared_ptr<RecursiveLock> VirtualTimeScheduler::recursiveLock(const std::string& name) {
  return std::make_shared<virtual_time::VirtualLock>(core_, name);
}

std::shared_ptr<Timer> VirtualTimeScheduler::repeatingTimer(Duration first, Duration interval,
                                                            Duration leeway, std::function<void()> onFire) {
  const virtual_time::TimerSchedule schedule{first, interval, leeway};
  return std::make_shared<virtual_time::VirtualTimer>(core_, schedule, std::move(onFire));
}

void VirtualTimeScheduler::sleep(Duration duration) {
  using virtual_time::WaitKind;
  virtual_time::SimThread& self = core_->requireSelf("sleep");
  auto lock = core_->lock();
  if (duration <= Duration::zero()) {
    core_->yield(lock, self);
  } else {
    const auto deadline = virtual_time::deadlineAfter(core_->now(), duration);
    core_->block(lock, self, {.kind = WaitKind::sleep, .deadline = deadline});
  }
}

Duration VirtualTimeScheduler::now() const { return core_->now(); }

}  // namespace kwtsdk::sim
