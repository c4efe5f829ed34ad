#include "session/callbacks.h"

#include <chrono>
#include <utility>

namespace kwtsdk::session::detail {
namespace {

using internal::MutexLock;

/// What this thread runs callbacks of, and something whose address is this thread's own.
thread_local const Callbacks* current = nullptr;
thread_local char threadMark = 0;

}  // namespace

/// What the executor gets. One that it destroys without running it takes its callback with it: nothing may
/// wait for that one.
class Callbacks::Turn {
 public:
  explicit Turn(std::shared_ptr<Callbacks> of) : of_(std::move(of)) {}
  ~Turn() {
    if (of_) of_->drop();
  }
  Turn(const Turn&) = delete;
  Turn& operator=(const Turn&) = delete;

  void take() {
    if (const auto of = std::exchange(of_, nullptr)) of->endTurn();
  }

 private:
  std::shared_ptr<Callbacks> of_;
};

std::shared_ptr<Callbacks> Callbacks::create(const std::shared_ptr<Scheduler>& scheduler, Executor executor,
                                             const internal::Logger& log) {
  if (executor) return std::make_shared<Callbacks>(scheduler, std::move(executor), false, log);
  const auto queue = scheduler->serialQueue("kwt.session.callbacks");
  queue->async([] {});
  return std::make_shared<Callbacks>(
      scheduler, [queue](std::function<void()> work) { queue->async(std::move(work)); }, true, log);
}

Callbacks::Callbacks(const std::shared_ptr<Scheduler>& scheduler, Executor executor, bool isOwn,
                     const internal::Logger& log)
    : scheduler_(scheduler), executor_(std::move(executor)), isOwn_(isOwn), log_(log) {}

bool Callbacks::isInside() const { return current == this; }

void Callbacks::post(Callback callback) {
  {
    const MutexLock lock(mutex_);
    waiting_.push_back(std::move(callback));
    if (std::exchange(isHandedOver_, true)) return;
  }
  handOver();
}

/// One callback a turn: the host's loop has a chance to do something else in between.
void Callbacks::handOver() {
  const auto turn = std::make_shared<Turn>(shared_from_this());
  internal::guardedCall(log_, "The host's executor", [&] { executor_([turn] { turn->take(); }); });
}

void Callbacks::endTurn() {
  {
    const MutexLock lock(mutex_);
    thread_ = &threadMark;
  }
  runNext();
  {
    const MutexLock lock(mutex_);
    isHandedOver_ = !waiting_.empty();
    if (!isHandedOver_) return;
  }
  handOver();
}

/// False when there is none, or another thread is in one.
bool Callbacks::runNext() {
  Callback callback;
  {
    const MutexLock lock(mutex_);
    if (waiting_.empty() || isRunning_) return false;
    callback = std::move(waiting_.front());
    waiting_.pop_front();
    isRunning_ = true;
  }
  const Callbacks* const before = std::exchange(current, this);
  internal::guardedCall(log_, "A host callback", callback);
  internal::guardedCall(log_, "The end of a host callback", [&callback] { callback = nullptr; });
  current = before;

  std::shared_ptr<Semaphore> idle;
  {
    const MutexLock lock(mutex_);
    isRunning_ = false;
    idle = idle_;
  }
  if (idle) idle->signal();
  return true;
}

void Callbacks::drop() {
  log_.error("The host's executor dropped a callback");
  std::deque<Callback> dropped;
  std::shared_ptr<Semaphore> idle;
  {
    const MutexLock lock(mutex_);
    dropped.swap(waiting_);
    isHandedOver_ = false;
    idle = idle_;
  }
  dropped.clear();
  if (idle) idle->signal();
}

/// How long the executor has for its next turn before it counts as one that does not come.
Duration Callbacks::patience() const {
  const MutexLock lock(mutex_);
  if (thread_ == &threadMark) return Duration::zero();
  return thread_ == nullptr ? std::chrono::seconds(1) : std::chrono::seconds(5);
}

void Callbacks::finish() {
  const auto idle = scheduler_->semaphore("kwt.session.callbacks.idle");
  {
    const MutexLock lock(mutex_);
    idle_ = idle;
  }
  for (bool comes = true;;) {
    bool isRunning = false;
    {
      const MutexLock lock(mutex_);
      if (isIdle()) break;
      isRunning = isRunning_;
    }
    if (isRunning || isOwn_) {
      idle->wait(std::nullopt);
    } else if (!comes || !idle->wait(patience())) {
      comes = false;  // one that stayed away once is not waited for at each callback
      runNext();
    }
  }
}

}  // namespace kwtsdk::session::detail
