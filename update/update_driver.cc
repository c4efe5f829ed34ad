#include "update/update_driver.h"

#include <array>
#include <memory>
#include <utility>

#include "codec/error_codes.h"
#include "platform/posix/files.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::internal {
namespace {

constexpr QueueLabel kAwaitQueue{"com.kwt.await"};
constexpr Duration kStepTimeout = std::chrono::seconds(5);

// Every update sends the whole image, whatever was confirmed before: recorders begin anew with each prepare.
constexpr std::uint64_t kOffset = 0;

}  // namespace

void UpdateDriver::updateFirmware(const std::string& imagePath, const Progress& progress,
                                  const ValueCompletion<std::string>& completion) {
  const auto work = [this, owner = channel_.owner(), imagePath, progress, completion] {
    MaybeError outcome;
    std::shared_ptr<Command> done;
    const bool isOver = guardedCall(channel_.log, "An update", [&] {
      auto data = dataOfFile(imagePath);
      if (!data) {
        outcome = unreadableImageError();
        return;
      }
      const auto image = std::make_shared<const Bytes>(std::move(*data));
      logConfirmed(*image);
      outcome = install(image, progress);
      if (!outcome) done = finish(*image);
    });
    const MaybeError& told = isOver ? outcome : noResourcesError();
    callHost(channel_.log, completion, told, told ? std::nullopt : std::optional<std::string>("success"));
    channel_.giveUp(done);  // nobody answers it
  };
  if (!channel_.queues.async(kAwaitQueue, work)) {
    callHost(channel_.log, completion, noResourcesError(), std::nullopt);
  }
}

MaybeError UpdateDriver::install(const ImageTransfer::Image& image, const Progress& progress) {
  using Done = std::function<void(const MaybeError&)>;
  const auto flag = [](const Done& done) { return [done](const MaybeError& error, bool) { done(error); }; };
  const std::array<std::pair<std::optional<Duration>, std::function<void(Done)>>, 7> steps{{
      {kStepTimeout, [&](const Done& done) { handshake_.updatePrepare(flag(done)); }},
      {kStepTimeout, [&](const Done& done) { handshake_.updateSelectionSide(flag(done)); }},
      {kStepTimeout,
       [&](const Done& done) {
         handshake_.updateResumeVerify(static_cast<std::int64_t>(wire::kSegmentSize), kOffset, flag(done));
       }},
      {kStepTimeout, [&](const Done& done) { handshake_.updateBegin(*image, flag(done)); }},
      {kStepTimeout, [&](const Done& done) { handshake_.updateConfig(*image, flag(done)); }},
      {std::nullopt,
       [&](const Done& done) {
         transfer_.uploadFirmWare(image, kOffset, progress,
                                  [done](const MaybeError& error, const auto&) { done(error); });
       }},
      {std::nullopt, [&](const Done& done) { transfer_.updateBye(flag(done)); }},
  }};
  for (const auto& [timeout, step] : steps) {
    if (auto error = runStep(timeout, step)) return error;
    channel_.platform.scheduler->sleep(kPause);
  }
  return std::nullopt;
}

MaybeError UpdateDriver::runStep(std::optional<Duration> timeout,
                                 const std::function<void(std::function<void(const MaybeError&)>)>& step) {
  // One for each step: the late answer to an earlier step ends nothing.
  Wait<MaybeError> wait(*channel_.platform.scheduler, "kwt.update.step", timeoutError());
  step([promise = wait.promise()](const MaybeError& error) { promise->set(error); });
  return wait.wait(timeout);
}

void UpdateDriver::logConfirmed(const Bytes& image) const {
  guardedCall(channel_.log, "Settings", [&] {
    const auto confirmed = channel_.platform.settings->read(resumeKey(image));
    channel_.log.info("Confirmed before: %lu bytes of %lu", confirmed.value_or(0), image.size());
  });
}

std::shared_ptr<Command> UpdateDriver::finish(const Bytes& image) {
  guardedCall(channel_.log, "Settings", [&] {
    channel_.platform.settings->remove(resumeKey(image));
    channel_.platform.settings->flush();
  });
  const auto done = transfer_.updateDone();
  channel_.platform.scheduler->sleep(kPause);
  return done;
}

}  // namespace kwtsdk::internal
