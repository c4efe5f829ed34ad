#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::session::detail {

/// One thing that a link told.
struct Sign {
  enum class Kind { acknowledged, notified, lost } kind;
  const Characteristic* from = nullptr;  // only to be compared
  Bytes value{};
  MaybeError error{};  // of a write that failed
};

using Signs = std::vector<Sign>;

/// What the link's thread tells, in its order, until the worker takes it: the one place where the worker
/// waits. Whoever wants it to look around nudges.
class Inbox {
 public:
  explicit Inbox(std::shared_ptr<Scheduler> scheduler)
      : scheduler_(std::move(scheduler)),
        arrived_(scheduler_->semaphore("kwt.session.inbox")),
        lastSign_(scheduler_->now()) {}

  // ---- Any thread ----

  void put(Sign sign) KWT_EXCLUDES(mutex_);

  /// There was no memory for one.
  void miss() { ++missed_; }
  void nudge() KWT_EXCLUDES(mutex_);

  /// Called when something comes that nobody waits for nor is about to take: once until unattended() is
  /// called again. Set before everything else.
  void setOnUnattended(std::function<void()> call) { onUnattended_ = std::move(call); }

  // ---- The worker ----

  /// A worker that the host's disk keeps for minutes costs at most this much memory, about 50 MB: packets
  /// beyond are lost as if on the way.
  static constexpr std::size_t kMost = std::size_t{1} << 18U;

  /// Waits until there are `enough` signs or one that is neither a full packet of a download nor the
  /// acknowledgement of a write that succeeded, somebody nudges, or the time is over, and takes what is
  /// there. One of those after the other would cost a change of threads each.
  Signs wait(std::optional<Duration> longest, std::size_t enough = 1) KWT_EXCLUDES(mutex_);

  /// What is there, without waiting. A nudge stays for the next wait.
  Signs take() KWT_EXCLUDES(mutex_);

  /// When the link last told something.
  Duration lastSign() const KWT_EXCLUDES(mutex_);
  void restartSilence() KWT_EXCLUDES(mutex_);
  std::uint64_t missed() const { return missed_; }

  void attend() KWT_EXCLUDES(mutex_);
  void leave() KWT_EXCLUDES(mutex_);

 private:
  bool isEnough() const KWT_REQUIRES(mutex_) { return isNudged_ || isUrgent_ || signs_.size() >= enough_; }
  Signs takeHeld() KWT_REQUIRES(mutex_);

  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<Semaphore> arrived_;
  std::function<void()> onUnattended_;
  std::atomic<std::uint64_t> missed_{0};
  mutable internal::Mutex mutex_;
  Signs signs_ KWT_GUARDED_BY(mutex_);
  std::size_t enough_ KWT_GUARDED_BY(mutex_) = 1;
  bool isUrgent_ KWT_GUARDED_BY(mutex_) = false;
  bool isNudged_ KWT_GUARDED_BY(mutex_) = false;
  bool isWaiting_ KWT_GUARDED_BY(mutex_) = false;
  bool isAttended_ KWT_GUARDED_BY(mutex_) = false;
  bool isTold_ KWT_GUARDED_BY(mutex_) = false;  // onUnattended, since the last leave()
  Duration lastSign_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::session::detail
