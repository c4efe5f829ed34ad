#include "session/operation_state.h"

#include <algorithm>
#include <chrono>
#include <utility>

namespace kwtsdk::session::detail {
namespace {

using internal::MutexLock;

// Beyond it a host means for ever, such as with Duration::max(), and no clock could show the end.
constexpr Duration kLongest = std::chrono::hours(24 * 365);

thread_local const void* currentWorker = nullptr;

}  // namespace

OnWorker::OnWorker(const void* worker) : before_(std::exchange(currentWorker, worker)) {}
OnWorker::~OnWorker() { currentWorker = before_; }
bool OnWorker::is(const void* worker) { return worker != nullptr && currentWorker == worker; }

class StopWatch : public std::enable_shared_from_this<StopWatch> {
 public:
  explicit StopWatch(std::weak_ptr<OperationState> operation) : operation_(std::move(operation)) {}

  void follow(const std::stop_token& token) { callback_.emplace(token, Call{weak_from_this()}); }

 private:
  struct Call {
    std::weak_ptr<StopWatch> watch;
    void operator()() const {
      const auto held = watch.lock();
      const auto operation = held ? held->operation_.lock() : nullptr;
      if (operation) operation->cancel();
    }
  };

  const std::weak_ptr<OperationState> operation_;
  std::optional<std::stop_callback<Call>> callback_;
};

OperationState::OperationState(std::string name, Surroundings surroundings)
    : name_(std::move(name)),
      surroundings_(std::move(surroundings)),
      began_(surroundings_.scheduler->now()) {}

OperationState::~OperationState() = default;

bool OperationState::wait(const std::optional<Duration>& longest) {
  if (done_) return true;
  if (OnWorker::is(surroundings_.worker)) {
    std::shared_ptr<const Ends> ends;
    {
      const MutexLock lock(mutex_);
      ends = ends_;
    }
    if (ends) ends->onStuck();
    if (done_) return true;
  }
  const auto ended = surroundings_.scheduler->semaphore("kwt.session.wait");
  {
    const MutexLock lock(mutex_);
    if (done_) return true;
    waiters_.push_back(ended);
  }
  if (!ended->wait(longest && *longest < kLongest ? longest : std::nullopt)) {
    const MutexLock lock(mutex_);
    std::erase(waiters_, ended);
  }
  return done_;
}

void OperationState::whenDone(std::function<void()> callback) {
  {
    const MutexLock lock(mutex_);
    if (!done_) {
      whenDone_.push_back(std::move(callback));
      return;
    }
  }
  surroundings_.callbacks->post(std::move(callback));
}

void OperationState::afterEnd(std::function<void()> call) {
  {
    const MutexLock lock(mutex_);
    if (!done_) {
      afterEnd_.push_back(std::move(call));
      return;
    }
  }
  call();
}

void OperationState::begin(std::function<void(Errc)> onInterrupt, std::function<void()> onStuck) {
  auto ends = std::make_shared<const Ends>(Ends{std::move(onInterrupt), std::move(onStuck)});
  const MutexLock lock(mutex_);
  ends_.swap(ends);
}

void OperationState::watch(const Limits& limits, const std::optional<Duration>& timeout) {
  if (timeout && *timeout < kLongest) {
    const Duration deadline = began_ + *timeout;
    const auto ticket = surroundings_.alarm->at(deadline, weak_from_this());
    const MutexLock lock(mutex_);
    deadline_ = deadline;
    ticket_ = ticket;
  }
  if (limits.stop().stop_possible()) {
    const auto stopWatch = std::make_shared<StopWatch>(weak_from_this());
    stopWatch->follow(limits.stop());
    const MutexLock lock(mutex_);
    if (!done_) stopWatch_ = stopWatch;
  }
}

std::optional<Duration> OperationState::deadline() const {
  const MutexLock lock(mutex_);
  return deadline_;
}

void OperationState::interrupt(Errc reason) noexcept {
  {
    const MutexLock lock(mutex_);
    if (done_ || interruption_) return;
    interruption_ = reason;
  }
  insist();
}

void OperationState::insist() noexcept {
  std::shared_ptr<const Ends> ends;
  std::optional<Errc> reason;
  {
    const MutexLock lock(mutex_);
    reason = interruption_;
    ends = ends_;
  }
  if (!reason || !ends) return;
  internal::guardedCall(surroundings_.log, "The end of an operation", [&] { ends->onInterrupt(*reason); });
}

std::optional<Errc> OperationState::interruption() const {
  const MutexLock lock(mutex_);
  return interruption_;
}

void OperationState::publishEnd() noexcept {
  std::list<std::function<void()>> callbacks;
  std::vector<std::function<void()>> afterwards;
  std::vector<std::shared_ptr<Semaphore>> waiters;
  std::shared_ptr<StopWatch> stopWatch;
  std::shared_ptr<const Ends> ends;
  std::optional<Alarm::Ticket> ticket;
  bool isFollowed = false;
  {
    const MutexLock lock(mutex_);
    report_.stage = ProgressReport::Stage::over;
    report_.elapsed = surroundings_.scheduler->now() - began_;
    report_.left.reset();
    done_ = true;
    callbacks.swap(whenDone_);
    afterwards.swap(afterEnd_);
    waiters.swap(waiters_);
    stopWatch.swap(stopWatch_);
    ends.swap(ends_);
    ticket.swap(ticket_);
    isFollowed = onProgress_ != nullptr;
  }
  if (ticket) surroundings_.alarm->takeBack(*ticket);
  using internal::guardedCall;
  for (const auto& call : afterwards) guardedCall(surroundings_.log, "What follows an operation", call);
  guardedCall(surroundings_.log, "The last progress report", [&] {
    if (isFollowed) surroundings_.callbacks->post([self = shared_from_this()] { self->callOnProgress(); });
  });
  surroundings_.callbacks->postAll(callbacks);
  for (const auto& waiter : waiters) waiter->signal();
}

// ---- Progress ----

ProgressReport OperationState::progress() const {
  const MutexLock lock(mutex_);
  ProgressReport report = report_;
  if (!done_) report.elapsed = surroundings_.scheduler->now() - began_;
  return report;
}

void OperationState::onProgress(std::function<void(const ProgressReport&)> callback) {
  auto stored = callback ? std::make_shared<OnProgress>(std::move(callback)) : nullptr;
  bool isOver = false;
  {
    const MutexLock lock(mutex_);
    onProgress_.swap(stored);
    isOver = done_ && onProgress_ != nullptr;
  }
  if (isOver) surroundings_.callbacks->post([self = shared_from_this()] { self->callOnProgress(); });
}

void OperationState::report(ProgressReport::Stage stage, std::uint64_t doneBytes, std::uint64_t total) {
  constexpr Duration shortest = std::chrono::milliseconds(100);
  const Duration now = surroundings_.scheduler->now();
  bool isDue = false;
  {
    const MutexLock lock(mutex_);
    isDue = report_.stage != stage || !lastProgress_ || now - *lastProgress_ >= shortest;
    if (report_.stage != stage || doneBytes < report_.done) samples_.clear();
    report_.stage = stage;
    report_.done = doneBytes;
    report_.total = total;
    report_.elapsed = now - began_;
    measureSpeed(now);
    isDue = isDue && onProgress_ && !done_ && !isProgressPosted_;
    if (isDue) {
      isProgressPosted_ = true;
      lastProgress_ = now;
    }
  }
  if (isDue) postProgress();
}

void OperationState::reportItem(std::uint32_t item, std::uint32_t items) {
  const MutexLock lock(mutex_);
  report_.item = item;
  report_.items = items;
}

/// Over the last seconds: the first packets after a pause say nothing of the next minutes.
void OperationState::measureSpeed(Duration now) {
  constexpr Duration step = std::chrono::milliseconds(250), window = std::chrono::seconds(3);
  if (samples_.empty() || now - samples_.back().time >= step) samples_.push_back({now, report_.done});
  while (samples_.size() > 2 && now - samples_.front().time > window) samples_.erase(samples_.begin());
  const std::chrono::duration<double> elapsed = now - samples_.front().time;
  report_.bytesPerSecond = 0;
  report_.left.reset();
  if (elapsed < step) return;
  report_.bytesPerSecond = static_cast<double>(report_.done - samples_.front().done) / elapsed.count();
  if (report_.total == 0 || report_.bytesPerSecond < 1) return;
  const double left = static_cast<double>(report_.total - std::min(report_.done, report_.total));
  report_.left =
      std::chrono::duration_cast<Duration>(std::chrono::duration<double>(left / report_.bytesPerSecond));
}

void OperationState::postProgress() {
  surroundings_.callbacks->post([self = shared_from_this()] {
    {
      const MutexLock lock(self->mutex_);
      self->isProgressPosted_ = false;
    }
    if (!self->done_) self->callOnProgress();
  });
}

void OperationState::callOnProgress() {
  std::shared_ptr<OnProgress> callback;
  {
    const MutexLock lock(mutex_);
    // The last one goes: it may hold a handle of this, and so this.
    callback = done_ ? std::exchange(onProgress_, nullptr) : onProgress_;
  }
  if (callback) (*callback)(progress());
}

}  // namespace kwtsdk::session::detail
