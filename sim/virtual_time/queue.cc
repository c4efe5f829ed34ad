#include "sim/virtual_time/queue.h"

#include <utility>

namespace kwtsdk::sim::virtual_time {

/// What the queue and its thread share: either may outlive the other. Fields under the core's lock.
class VirtualQueue::Worker : public Job {
 public:
  Worker(Core& core, std::string label) : core_(core), label_(std::move(label)) {}

  void run() override;
  void abandon() override;

  void submit(Core::Lock& lock, std::function<void()>& work, const std::shared_ptr<Worker>& self);

  /// Drops what has not begun; the thread ends after the work that has.
  void stop();
  void waitForEnd();

 private:
  Core& core_;  // alive as long as the queue or a run is
  const std::string label_;
  std::deque<std::function<void()>> pending_;
  ThreadId thread_ = 0;  // 0: none
  bool stopped_ = false;
  WaitList idle_;
  WaitList waitingForEnd_;
};

void VirtualQueue::Worker::run() {
  for (;;) {
    core_.preemptionPoint();
    Core::Lock lock = core_.lock();
    while (pending_.empty() && !stopped_ && !core_.ending()) {
      core_.block(lock, *core_.self(), {.kind = WaitKind::idleQueue, .name = &label_, .list = &idle_});
    }
    if (pending_.empty()) {
      thread_ = 0;
      core_.wakeAll(waitingForEnd_);
      return;
    }
    const std::function<void()> work = std::move(pending_.front());
    pending_.pop_front();
    lock.unlock();
    work();
  }
}

void VirtualQueue::Worker::abandon() {
  std::deque<std::function<void()>> dropped;
  const Core::Lock lock = core_.lock();
  dropped.swap(pending_);
  thread_ = 0;
}

void VirtualQueue::Worker::submit(Core::Lock&, std::function<void()>& work,
                                  const std::shared_ptr<Worker>& self) {
  pending_.push_back(std::move(work));
  if (thread_ == 0) {
    thread_ = core_.add(label_, self).id;
  } else {
    core_.wakeOne(idle_);
  }
}

void VirtualQueue::Worker::stop() {
  std::deque<std::function<void()>> dropped;
  const Core::Lock lock = core_.lock();
  stopped_ = true;
  dropped.swap(pending_);
  core_.wakeAll(idle_);
}

void VirtualQueue::Worker::waitForEnd() {
  SimThread* const self = core_.self();
  if (self == nullptr) return;
  Core::Lock lock = core_.lock();
  while (thread_ != 0 && thread_ != self->id) {
    core_.block(lock, *self, {.kind = WaitKind::queueEnd, .name = &label_, .list = &waitingForEnd_});
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
  {
    Core::Lock lock = core.lock();
    if (core.closed()) return;
    worker_->submit(lock, work, worker_);
  }
  core.preemptionPoint();
}

}  // namespace kwtsdk::sim::virtual_time
