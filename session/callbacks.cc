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

  void forget() { of_ = nullptr; }
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
    : executor_(std::move(executor)),
      isOwn_(isOwn),
      log_(log),
      idle_(scheduler->semaphore("kwt.session.callbacks.idle")) {}

bool Callbacks::isInside() const { return current == this; }

void Callbacks::post(Callback callback) {
  std::list<Callback> one;
  one.push_back(std::move(callback));
  postAll(one);
}

void Callbacks::postAll(std::list<Callback>& callbacks) noexcept {
  {
    const MutexLock lock(mutex_);
    waiting_.splice(waiting_.end(), callbacks);
    if (waiting_.empty() || std::exchange(isHandedOver_, true)) return;
  }
  handOver();
}

/// One callback a turn: the host's loop has a chance to do something else in between.
void Callbacks::handOver() noexcept {
  std::shared_ptr<Turn> turn;
  const bool isMade =
      internal::guardedCall(log_, "A turn", [&] { turn = std::make_shared<Turn>(shared_from_this()); });
  if (isMade &&
      internal::guardedCall(log_, "The host's executor", [&] { executor_([turn] { turn->take(); }); }))
    return;
  if (turn && !isOwn_) return;  // the host's: what it has not taken is dropped
  if (turn) turn->forget();
  for (bool hasMore = true; hasMore;) {
    runNext();
    const MutexLock lock(mutex_);
    hasMore = isHandedOver_ = !waiting_.empty() && !isRunning_;
  }
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

  const auto idle = idle_;  // who waits may let go of this before the signal has returned
  bool isAwaited = false;
  {
    const MutexLock lock(mutex_);
    isRunning_ = false;
    isAwaited = isAwaited_;
  }
  if (isAwaited) idle->signal();
  return true;
}

void Callbacks::drop() {
  log_.error("The host's executor dropped a callback");
  std::list<Callback> dropped;
  bool isAwaited = false;
  {
    const MutexLock lock(mutex_);
    dropped.swap(waiting_);
    isHandedOver_ = false;
    isAwaited = isAwaited_;
  }
  dropped.clear();
  if (isAwaited) idle_->signal();
}

/// How long the executor has for its next turn before it counts as one that does not come.
Duration Callbacks::patience() const {
  const MutexLock lock(mutex_);
  if (thread_ == &threadMark) return Duration::zero();
  return thread_ == nullptr ? std::chrono::seconds(1) : std::chrono::seconds(5);
}

void Callbacks::finish() {
  {
    const MutexLock lock(mutex_);
    isAwaited_ = true;
  }
  for (bool comes = true;;) {
    bool isRunning = false;
    {
      const MutexLock lock(mutex_);
      if (isIdle()) break;
      isRunning = isRunning_;
    }
    if (isRunning || isOwn_) {
      idle_->wait(std::nullopt);
    } else if (!comes || !idle_->wait(patience())) {
      comes = false;  // one that stayed away once is not waited for at each callback
      runNext();
    }
  }
}

}  // namespace kwtsdk::session::detail
