#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <utility>

#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "sim/virtual_time/core.h"
#include "sim/virtual_time/lock_and_semaphore.h"
#include "sim/virtual_time/queue_and_timer.h"

namespace kwtsdk::sim {
namespace {

class HostThread : public virtual_time::ThreadBody {
 public:
  explicit HostThread(std::function<void()> body) : body_(std::move(body)) {}
  void run() override { body_(); }

 private:
  const std::function<void()> body_;
};

}  // namespace

std::uint64_t seedFromEnvironment(std::uint64_t fallback) {
  const char* variable = std::getenv("KWTSDK_SEED");
  if (variable == nullptr) return fallback;
  const std::string_view text(variable);
  std::uint64_t seed = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seed);
  if (error != std::errc() || end != text.data() + text.size()) {
    std::fprintf(stderr, "KWTSDK_SEED is \"%s\"; set it to a decimal number from 0 to 18446744073709551615\n",
                 variable);
    std::exit(2);
  }
  return seed;
}

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
    const virtual_time::MutexLock lock(core_->mutex);
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
  const virtual_time::MutexLock lock(core_->mutex);
  if (duration <= Duration::zero()) {
    core_->yield(self);
  } else {
    const auto deadline = virtual_time::deadlineAfter(core_->now(), duration);
    core_->block(self, {.kind = WaitKind::sleep, .deadline = deadline});
  }
}

Duration VirtualTimeScheduler::now() const { return core_->now(); }

}  // namespace kwtsdk::sim
