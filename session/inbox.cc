#include "session/inbox.h"

#include "wire/recorder_channel.h"

namespace kwtsdk::session::detail {
namespace {

using internal::MutexLock;

/// A packet of a download that is neither its last nor cut.
bool isFullPacket(const Sign& sign) {
  constexpr std::size_t validAt = 4;
  return sign.kind == Sign::Kind::notified && sign.value.size() == wire::kDownloadPacketSize &&
         sign.value[validAt] == wire::kDownloadDataSize && sign.value[validAt + 1] == 0;
}

bool isUrgent(const Sign& sign) {
  const bool isSuccess = sign.kind == Sign::Kind::acknowledged && !sign.error;
  return !isSuccess && !isFullPacket(sign);
}

}  // namespace

void Inbox::put(Sign sign) {
  const Duration now = scheduler_->now();
  bool wakes = false, isUnattended = false;
  {
    const MutexLock lock(mutex_);
    lastSign_ = now;
    if (signs_.size() >= kMost && isFullPacket(sign)) return;
    isUrgent_ = isUrgent_ || isUrgent(sign);
    signs_.push_back(std::move(sign));
    wakes = isWaiting_ && isEnough();
    if (wakes) isWaiting_ = false;
    isUnattended = !isAttended_ && !std::exchange(isTold_, true);
  }
  if (wakes) arrived_->signal();
  if (isUnattended && onUnattended_) onUnattended_();
}

void Inbox::nudge() {
  bool wakes = false;
  {
    const MutexLock lock(mutex_);
    isNudged_ = true;
    wakes = std::exchange(isWaiting_, false);
  }
  if (wakes) arrived_->signal();
}

Signs Inbox::wait(std::optional<Duration> longest, std::size_t enough) {
  {
    const MutexLock lock(mutex_);
    enough_ = enough;
    if (isEnough()) {
      isNudged_ = false;
      return takeHeld();
    }
    isWaiting_ = true;
  }
  const bool isSignalled = arrived_->wait(longest);
  bool isUnderWay = false;
  {
    const MutexLock lock(mutex_);
    isUnderWay = !isSignalled && !isWaiting_;
    isWaiting_ = false;
    isNudged_ = false;
  }
  if (isUnderWay) arrived_->wait(std::nullopt);  // a signal that just missed the end of the wait
  return take();
}

Signs Inbox::take() {
  const MutexLock lock(mutex_);
  return takeHeld();
}

Signs Inbox::takeHeld() {
  isUrgent_ = false;
  Signs taken;
  taken.swap(signs_);
  return taken;
}

Duration Inbox::lastSign() const {
  const MutexLock lock(mutex_);
  return lastSign_;
}

void Inbox::restartSilence() {
  const Duration now = scheduler_->now();
  const MutexLock lock(mutex_);
  lastSign_ = now;
}

void Inbox::attend() {
  const MutexLock lock(mutex_);
  isAttended_ = true;
}

void Inbox::leave() {
  bool isUnattended = false;
  {
    const MutexLock lock(mutex_);
    isAttended_ = false;
    isTold_ = !signs_.empty();
    isUnattended = isTold_;
  }
  if (isUnattended && onUnattended_) onUnattended_();
}

}  // namespace kwtsdk::session::detail
