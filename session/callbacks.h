#pragma once

#include <functional>
#include <list>
#include <memory>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/session.h>

#include "platform/posix/host_call.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::session::detail {

/// Runs the host's callbacks one at a time, in order, on the host's executor or a thread of its own. What a
/// callback throws is logged.
class Callbacks : public std::enable_shared_from_this<Callbacks> {
 public:
  using Callback = std::function<void()>;

  /// Without an executor it starts its thread, and throws std::system_error where there is none to be had.
  static std::shared_ptr<Callbacks> create(const std::shared_ptr<Scheduler>& scheduler, Executor executor,
                                           const internal::Logger& log);

  Callbacks(const std::shared_ptr<Scheduler>& scheduler, Executor executor, bool isOwn,
            const internal::Logger& log);

  void post(Callback callback) KWT_EXCLUDES(mutex_);

  /// All of them, which needs no memory but what the executor does. Where that refuses they run here.
  void postAll(std::list<Callback>& callbacks) noexcept KWT_EXCLUDES(mutex_);

  /// Whether this thread is in one.
  bool isInside() const;

  /// Waits until all that were posted have run. Those that the host's executor does not begin are run here:
  /// its loop may be this thread, or have ended. Not inside a callback.
  void finish() KWT_EXCLUDES(mutex_);

 private:
  class Turn;

  void handOver() noexcept KWT_EXCLUDES(mutex_);
  bool runNext() KWT_EXCLUDES(mutex_);
  void drop() KWT_EXCLUDES(mutex_);
  bool isIdle() const KWT_REQUIRES(mutex_) { return waiting_.empty() && !isRunning_; }
  Duration patience() const KWT_EXCLUDES(mutex_);
  void endTurn() KWT_EXCLUDES(mutex_);

  const Executor executor_;
  const bool isOwn_;
  const internal::Logger log_;

  mutable internal::Mutex mutex_;
  std::list<Callback> waiting_ KWT_GUARDED_BY(mutex_);
  bool isHandedOver_ KWT_GUARDED_BY(mutex_) = false;
  bool isRunning_ KWT_GUARDED_BY(mutex_) = false;
  const void* thread_ KWT_GUARDED_BY(mutex_) = nullptr;  // that the executor used last
  bool isAwaited_ KWT_GUARDED_BY(mutex_) = false;        // that they are idle
  const std::shared_ptr<Semaphore> idle_;
};

}  // namespace kwtsdk::session::detail
