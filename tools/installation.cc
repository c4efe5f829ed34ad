#include "tools/installation.h"

#include <chrono>
#include <optional>
#include <utility>

namespace kwtsdk::tool {

Installation::Installation(Session& session, std::string path, std::uint64_t size)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<InstallationWatch>(
          session.scheduler(), size, [&recorder = session.recorder()] { return recorder.MTU(); })) {
  session_.link().setOnNotification([watch = watch_](const Bytes& value) { watch->onNotification(value); });
  session_.link().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

Installation::~Installation() {
  session_.endLinkOnInterrupt();
  session_.link().setOnDisconnect(nullptr);
  session_.link().setOnNotification(nullptr);
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
  session_.link().disconnect();
  while (!watch_->waitForCompletion(step)) {
    if (const auto answer = session_.recorder().completionBlock()) answer(abandoned, std::nullopt);
  }
  session_.recorder().setCompletionBlock(nullptr);
}

}  // namespace kwtsdk::tool
