#include "tools/installation.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <string_view>
#include <utility>

#include "tools/firmware_image.h"
#include "tools/output.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::tool {
namespace {

/// How an answer begins, and the step that follows it.
constexpr std::array<std::pair<std::string_view, InstallationStep>, 6> kAcceptedSteps{
    {{wire::kPrepared, InstallationStep::partition},
     {wire::kSideSelected, InstallationStep::resume},
     {wire::kResumeVerified, InstallationStep::begin},
     {wire::kBegun, InstallationStep::configuration},
     {wire::kConfigured, InstallationStep::transfer},
     {wire::kByeAccepted, InstallationStep::accepted}}};

}  // namespace

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
  const std::string answer = hexText(value);
  const internal::MutexLock lock(mutex_);
  lastSign_ = scheduler_.now();
  if (isOver_) return;
  for (const auto& [accepted, next] : kAcceptedSteps) {
    if (answer.starts_with(accepted)) onAccepted(next);
  }
  if (answer.starts_with(wire::kSegmentConfirmed)) onSegmentConfirmed();
}

void InstallationWatch::onAcknowledgement() {
  const internal::MutexLock lock(mutex_);
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
  const internal::MutexLock lock(mutex_);
  return step_;
}

std::uint64_t InstallationWatch::confirmed() const {
  const internal::MutexLock lock(mutex_);
  return confirmed_;
}

void InstallationWatch::onAccepted(InstallationStep next) {
  step_ = next;
  if (next != InstallationStep::transfer) return;
  line_.show(0, imageSize_);
  if (unsendableTail(imageSize_, mtu_()) > 0) endHeld(InstallationEnd::unsendable);
}

void InstallationWatch::onSegmentConfirmed() {
  confirmed_ = std::min(confirmed_ + wire::kSegmentSize, imageSize_);
  if (confirmed_ == imageSize_) step_ = InstallationStep::bye;
  line_.show(confirmed_, imageSize_);
}

void InstallationWatch::end(InstallationEnd how) {
  const internal::MutexLock lock(mutex_);
  endHeld(how);
}

void InstallationWatch::endHeld(InstallationEnd how) {
  if (std::exchange(isOver_, true)) return;
  line_.clear();
  ended_.put(how);
}

Duration InstallationWatch::lastSign() const {
  const internal::MutexLock lock(mutex_);
  return lastSign_;
}

Installation::Installation(Session& session, std::string path, std::uint64_t size)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<InstallationWatch>(
          session.scheduler(), size, [&recorder = session.recorder()] { return recorder.MTU(); })) {
  session_.connection().setOnNotification(
      [watch = watch_](const Bytes& value) { watch->onNotification(value); });
  session_.connection().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

Installation::~Installation() {
  session_.disconnectOnInterrupt();
  session_.connection().setOnDisconnect(nullptr);
  session_.connection().setOnNotification(nullptr);
}

InstallationOutcome Installation::run() {
  constexpr Duration longestSilence = std::chrono::seconds(10);  // the library gives a step 5 s
  session_.recorder().updateFirmware(
      path_, [watch = watch_](std::uint64_t, std::uint64_t) { watch->onAcknowledgement(); },
      [watch = watch_](const MaybeError& error, const auto&) { watch->onCompletion(error); });

  InstallationOutcome outcome{watch_->waitForEnd(longestSilence), std::nullopt, InstallationStep::prepare, 0};
  outcome.step = watch_->step();
  outcome.confirmed = watch_->confirmed();
  if (outcome.end == InstallationEnd::reported) {
    outcome.error = watch_->waitForCompletion(Duration::zero()).value_or(std::nullopt);
  } else {
    abandon();
  }
  return outcome;
}

// Without a time-out the library waits for answers that no longer come, so each gets an error in its place.
void Installation::abandon() {
  constexpr Duration step = std::chrono::milliseconds(5);
  const Error abandoned("kwt", 0, {{"NSLocalizedDescription", "The update was given up."}});
  session_.connection().disconnect();
  while (!watch_->waitForCompletion(step)) {
    if (const auto answer = session_.recorder().completionBlock()) answer(abandoned, std::nullopt);
  }
  session_.recorder().setCompletionBlock(nullptr);
}

}  // namespace kwtsdk::tool
