#include "tools/installation_watch.h"

#include <algorithm>
#include <utility>

#include "tools/image_tail.h"

namespace kwtsdk::tool {

InstallationWatch::InstallationWatch(Scheduler& scheduler, std::uint64_t imageSize,
                                     std::function<std::int64_t()> mtu)
    : scheduler_(scheduler),
      imageSize_(imageSize),
      mtu_(std::move(mtu)),
      ended_(scheduler, "kwt.update.end"),
      completed_(scheduler, "kwt.update.completion"),
      line_(scheduler),
      lastSign_(scheduler.now()) {}

void InstallationWatch::onNotification(const Bytes& value) {
  const std::lock_guard lock(mutex_);
  lastSign_ = scheduler_.now();
  const bool isRefusal = value.size() < 2 || value[1] == 0;
  if (!isOver_ && !isRefusal) onAccepted(value[0]);
}

void InstallationWatch::onAcknowledgement() {
  const std::lock_guard lock(mutex_);
  lastSign_ = scheduler_.now();
}

void InstallationWatch::onCompletion(const MaybeError& error) {
  completed_.put(error);
  end(InstallationEnd::reported);
}

// An accepted image is installed a moment later, and nobody can stop that.
void InstallationWatch::onInterrupt() {
  if (step() != InstallationStep::accepted) end(InstallationEnd::interrupted);
}

InstallationEnd InstallationWatch::waitForEnd(Duration longestSilence) {
  for (;;) {
    const Duration left = lastSign() + longestSilence - scheduler_.now();
    if (left <= Duration::zero()) end(InstallationEnd::stalled);
    if (const auto how = ended_.take(std::max(left, Duration::zero()))) return *how;
  }
}

InstallationStep InstallationWatch::step() const {
  const std::lock_guard lock(mutex_);
  return step_;
}

std::uint64_t InstallationWatch::confirmed() const {
  const std::lock_guard lock(mutex_);
  return confirmed_;
}

void InstallationWatch::onAccepted(std::uint8_t code) {
  switch (code) {
    case 0x98:
      step_ = InstallationStep::partition;
      break;
    case 0x91:
      step_ = InstallationStep::resume;
      break;
    case 0x8D:
      step_ = InstallationStep::begin;
      break;
    case 0x81:
      step_ = InstallationStep::configuration;
      break;
    case 0x87:
      step_ = InstallationStep::transfer;
      line_.show(0, imageSize_);
      if (unsendableTail(imageSize_, mtu_()) > 0) endHeld(InstallationEnd::unsendable);
      break;
    case 0x83:
      onSegmentConfirmed();
      break;
    case 0x84:
      step_ = InstallationStep::accepted;
      break;
    default:
      break;
  }
}

void InstallationWatch::onSegmentConfirmed() {
  constexpr std::uint64_t segmentSize = 8192;
  confirmed_ = std::min(confirmed_ + segmentSize, imageSize_);
  if (confirmed_ == imageSize_) step_ = InstallationStep::bye;
  line_.show(confirmed_, imageSize_);
}

void InstallationWatch::end(InstallationEnd how) {
  const std::lock_guard lock(mutex_);
  endHeld(how);
}

void InstallationWatch::endHeld(InstallationEnd how) {
  if (std::exchange(isOver_, true)) return;
  line_.clear();
  ended_.put(how);
}

Duration InstallationWatch::lastSign() const {
  const std::lock_guard lock(mutex_);
  return lastSign_;
}

}  // namespace kwtsdk::tool
