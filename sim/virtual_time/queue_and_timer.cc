#include "sim/virtual_time/queue_and_timer.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

namespace kwtsdk::sim::virtual_time {

// ---- Queue ----

/// What the queue and its thread share: either may outlive the other.
class VirtualQueue::Worker : public ThreadBody {
 public:
  Worker(Core& core, std::string label) : core_(core), label_(std::move(label)) {}

  void run() override;
  void abandon() override;

  void submit(std::function<void()>& work, const std::shared_ptr<Worker>& self);

  /// Drops what has not begun; the thread ends after the work that has.
  void stop();
  void waitForEnd();

 private:
  std::optional<std::function<void()>> awaitWork();

  Core& core_;  // alive as long as the queue or a run is
  const std::string label_;
  std::deque<std::function<void()>> pending_ KWT_GUARDED_BY(core_.mutex);
  ThreadId thread_ KWT_GUARDED_BY(core_.mutex) = 0;  // 0: none
  bool stopped_ KWT_GUARDED_BY(core_.mutex) = false;
  WaitList idle_ KWT_GUARDED_BY(core_.mutex);
  WaitList waitingForEnd_ KWT_GUARDED_BY(core_.mutex);
};

void VirtualQueue::Worker::run() {
  for (;;) {
    core_.preemptionPoint();
    const auto work = awaitWork();
    if (!work) return;
    (*work)();
  }
}

/// None: the thread is to end.
std::optional<std::function<void()>> VirtualQueue::Worker::awaitWork() {
  const MutexLock lock(core_.mutex);
  while (pending_.empty() && !stopped_ && !core_.ending()) {
    core_.block(*core_.self(), {.kind = WaitKind::idleQueue, .name = &label_, .list = &idle_});
  }
  if (pending_.empty()) {
    thread_ = 0;
    core_.wakeAll(waitingForEnd_);
    return std::nullopt;
  }
  std::optional work = std::move(pending_.front());
  pending_.pop_front();
  return work;
}

void VirtualQueue::Worker::abandon() {
  std::deque<std::function<void()>> dropped;
  const MutexLock lock(core_.mutex);
  dropped.swap(pending_);
  thread_ = 0;
}

void VirtualQueue::Worker::submit(std::function<void()>& work, const std::shared_ptr<Worker>& self) {
  const MutexLock lock(core_.mutex);
  if (core_.closed()) return;
  pending_.push_back(std::move(work));
  if (thread_ == 0) {
    thread_ = core_.add(label_, self).id;
  } else {
    core_.wakeOne(idle_);
  }
}

void VirtualQueue::Worker::stop() {
  std::deque<std::function<void()>> dropped;
  const MutexLock lock(core_.mutex);
  stopped_ = true;
  dropped.swap(pending_);
  core_.wakeAll(idle_);
}

void VirtualQueue::Worker::waitForEnd() {
  SimThread* const self = core_.self();
  if (self == nullptr) return;
  const MutexLock lock(core_.mutex);
  while (thread_ != 0 && thread_ != self->id) {
    core_.block(*self, {.kind = WaitKind::queueEnd, .name = &label_, .list = &waitingForEnd_});
  }
}

VirtualQueue::VirtualQueue(std::shared_ptr<Core> core, std::string label)
    : core_(std::move(core)), worker_(std::make_shared<Worker>(*core_, std::move(label))) {}

VirtualQueue::~VirtualQueue() {
  core_->preemptionPoint();
  worker_->stop();
  worker_->waitForEnd();
}

void VirtualQueue::async(std::function<void()> work) {
  Core& core = *core_;  // the work may destroy this queue
  core.preemptionPoint();
  worker_->submit(work, worker_);
  core.preemptionPoint();
}

// ---- Timer ----

/// What the timer and its thread share.
class VirtualTimer::Ticker : public ThreadBody {
 public:
  Ticker(Core& core, const TimerSchedule& schedule, std::function<void()> onFire)
      : core_(core),
        interval_(std::max(schedule.interval, Duration::zero())),
        leeway_(std::max(schedule.leeway, Duration::zero())),
        onFire_(std::move(onFire)),
        due_(deadlineAfter(core.now(), std::max(schedule.first, Duration::zero()))) {}

  /// False when nothing will run any more.
  bool start(const std::shared_ptr<Ticker>& self) {
    const MutexLock lock(core_.mutex);
    arm();
    if (core_.closed()) return false;
    core_.add("timer", self, wait());
    return true;
  }

  void run() override {
    while (awaitFire()) {
      onFire_();
      const MutexLock lock(core_.mutex);
      scheduleNext();
    }
    abandon();
  }

  /// The callback goes, although the timer may still be there.
  void abandon() override { onFire_ = nullptr; }

  /// Whether it was not yet.
  bool cancel() {
    const MutexLock lock(core_.mutex);
    if (std::exchange(cancelled_, true)) return false;
    core_.wakeAll(armed_);
    return true;
  }

 private:
  /// False when the timer is cancelled.
  bool awaitFire() {
    const MutexLock lock(core_.mutex);
    while (!cancelled_ && (!fireAt_ || core_.now() < *fireAt_)) core_.block(*core_.self(), wait());
    return !cancelled_;
  }

  /// Decides when the next fire is, which wait() is until.
  void arm() KWT_REQUIRES(core_.mutex) { fireAt_ = due_ ? deadlineAfter(*due_, lateness()) : due_; }
  Wait wait() KWT_REQUIRES(core_.mutex) {
    return {.kind = WaitKind::timer, .list = &armed_, .deadline = fireAt_};
  }

  // Half of the fires are on time and a quarter as late as they may be: that is where order turns.
  Duration lateness() KWT_REQUIRES(core_.mutex) {
    if (leeway_ == Duration::zero()) return leeway_;
    const std::uint64_t choice = core_.random().below(4);
    if (choice < 2) return Duration::zero();
    if (choice == 2) return leeway_;
    return Duration(core_.random().below(static_cast<std::uint64_t>(leeway_.count())));
  }

  // Late fires do not shift the later ones; those missed while one lasted become one.
  void scheduleNext() KWT_REQUIRES(core_.mutex) {
    due_ = deadlineAfter(*due_, interval_);
    if (due_ && *due_ < core_.now()) {
      const Duration late = core_.now() - *due_;
      due_ = interval_ == Duration::zero() ? core_.now() : *due_ + late / interval_ * interval_;
    }
    arm();
  }

  Core& core_;  // alive as long as the timer or a run is
  const Duration interval_;
  const Duration leeway_;
  std::function<void()> onFire_;  // the thread's own
  std::optional<Duration> due_ KWT_GUARDED_BY(core_.mutex);
  std::optional<Duration> fireAt_ KWT_GUARDED_BY(core_.mutex);
  bool cancelled_ KWT_GUARDED_BY(core_.mutex) = false;
  WaitList armed_ KWT_GUARDED_BY(core_.mutex);
};

VirtualTimer::VirtualTimer(std::shared_ptr<Core> core, const TimerSchedule& schedule,
                           std::function<void()> onFire)
    : core_(std::move(core)), ticker_(std::make_shared<Ticker>(*core_, schedule, std::move(onFire))) {
  if (!ticker_->start(ticker_)) ticker_->abandon();
  core_->preemptionPoint();
}

VirtualTimer::~VirtualTimer() { VirtualTimer::cancel(); }

void VirtualTimer::cancel() {
  Core& core = *core_;
  core.preemptionPoint();
  if (ticker_->cancel()) core.preemptionPoint();
}

}  // namespace kwtsdk::sim::virtual_time
