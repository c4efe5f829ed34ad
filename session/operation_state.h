#pragma once

#include <atomic>
#include <functional>
#include <list>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <system_error>
#include <vector>

#include <kwtsdk/session/session.h>

#include "platform/threads/mutex.h"
#include "session/alarm.h"
#include "session/callbacks.h"

namespace kwtsdk::session::detail {

/// What all operations of a Session need.
struct Surroundings {
  std::shared_ptr<Scheduler> scheduler;
  std::shared_ptr<Callbacks> callbacks;
  std::shared_ptr<Alarm> alarm;
  internal::Logger log;
  const void* worker = nullptr;  // whose operations they are; not looked into
};

/// Says, while it lives, that this thread is that worker's.
class OnWorker {
 public:
  explicit OnWorker(const void* worker);
  ~OnWorker();
  OnWorker(const OnWorker&) = delete;
  OnWorker& operator=(const OnWorker&) = delete;
  static bool is(const void* worker);

 private:
  const void* const before_;
};

/// Cancels when the token says so. Its callback holds the object first: the destructor of a stop_callback
/// waits for one that runs on another thread, which under virtual time would be for ever.
class StopWatch;

/// One operation as handles, worker and callbacks see it. The end is claimed first and published when the
/// result is there; whoever comes second has no part in it.
class OperationState : public Expiring, public std::enable_shared_from_this<OperationState> {
 public:
  OperationState(std::string name, Surroundings surroundings);
  ~OperationState() override;

  // ---- Handles ----

  bool done() const { return done_; }
  void cancel() { interrupt(Errc::cancelled); }
  bool wait(const std::optional<Duration>& longest) KWT_EXCLUDES(mutex_);
  ProgressReport progress() const KWT_EXCLUDES(mutex_);
  void onProgress(std::function<void(const ProgressReport&)> callback) KWT_EXCLUDES(mutex_);
  void whenDone(std::function<void()> callback) KWT_EXCLUDES(mutex_);

  // ---- Whoever carries it out ----

  const std::string& name() const { return name_; }
  const Surroundings& surroundings() const { return surroundings_; }

  /// `onInterrupt` gets the first reason why it has to end: cancelled, timedOut or closed; any thread.
  /// `onStuck` has to end it when its own worker's thread waits for it.
  void begin(std::function<void(Errc)> onInterrupt, std::function<void()> onStuck) KWT_EXCLUDES(mutex_);

  /// From now on it ends at its time and by its token.
  void watch(const Limits& limits, const std::optional<Duration>& timeout);
  std::optional<Duration> deadline() const KWT_EXCLUDES(mutex_);
  Duration began() const { return began_; }

  void interrupt(Errc reason) noexcept KWT_EXCLUDES(mutex_);

  /// Tells again what it was told: what can end it now could not when it came, or not yet.
  void insist() noexcept KWT_EXCLUDES(mutex_);
  std::optional<Errc> interruption() const KWT_EXCLUDES(mutex_);
  void expire() override { interrupt(Errc::timedOut); }

  /// Until then nothing ends it: the recorder is left in order first.
  void shieldUntil(Duration time) { shield_ = time.count(); }
  bool isShielded() const { return surroundings_.scheduler->now() < shield(); }
  Duration shield() const { return Duration(shield_); }

  /// Called once it has ended, on the thread that ended it; at once if it has. Not for the host's code.
  void afterEnd(std::function<void()> call) KWT_EXCLUDES(mutex_);

  void report(ProgressReport::Stage stage, std::uint64_t doneBytes = 0, std::uint64_t total = 0)
      KWT_EXCLUDES(mutex_);
  void reportItem(std::uint32_t item, std::uint32_t items) KWT_EXCLUDES(mutex_);

  /// True once.
  bool claimEnd() { return !claimed_.exchange(true); }
  void publishEnd() noexcept KWT_EXCLUDES(mutex_);

 private:
  using OnProgress = std::function<void(const ProgressReport&)>;

  void measureSpeed(Duration now) KWT_REQUIRES(mutex_);
  void postProgress() KWT_EXCLUDES(mutex_);
  void callOnProgress() KWT_EXCLUDES(mutex_);

  const std::string name_;
  const Surroundings surroundings_;
  const Duration began_;
  std::atomic<bool> claimed_{false}, done_{false};
  std::atomic<Duration::rep> shield_{Duration::min().count()};

  struct Sample {
    Duration time;
    std::uint64_t done;
  };

  mutable internal::Mutex mutex_;
  struct Ends {
    std::function<void(Errc)> onInterrupt;
    std::function<void()> onStuck;
  };
  std::shared_ptr<const Ends> ends_ KWT_GUARDED_BY(mutex_);
  std::optional<Errc> interruption_ KWT_GUARDED_BY(mutex_);
  std::optional<Duration> deadline_ KWT_GUARDED_BY(mutex_);
  std::optional<Alarm::Ticket> ticket_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<StopWatch> stopWatch_ KWT_GUARDED_BY(mutex_);
  std::list<std::function<void()>> whenDone_ KWT_GUARDED_BY(mutex_);
  std::vector<std::function<void()>> afterEnd_ KWT_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<Semaphore>> waiters_ KWT_GUARDED_BY(mutex_);
  ProgressReport report_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<OnProgress> onProgress_ KWT_GUARDED_BY(mutex_);
  bool isProgressPosted_ KWT_GUARDED_BY(mutex_) = false;
  std::optional<Duration> lastProgress_ KWT_GUARDED_BY(mutex_);
  std::vector<Sample> samples_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::session::detail
