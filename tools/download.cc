#include "tools/download.h"

#include <chrono>
#include <utility>

namespace kwtsdk::tool {

Download::Download(Session& session, std::string path)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<DownloadWatch>(session.scheduler(), path_,
                                             [&link = session.link()] { link.disconnect(); })),
      released_(session.scheduler().semaphore("kwt.download.released")) {
  session_.log().observe([watch = watch_](std::string_view line) { watch->onLogLine(line); });
  session_.link().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

Download::~Download() {
  session_.endLinkOnInterrupt();
  session_.link().setOnDisconnect(nullptr);
  session_.log().observe(nullptr);
}

DownloadOutcome Download::run() {
  // The library keeps the progress callback as long as a packet may still be written; with the callback's end
  // goes this token.
  std::shared_ptr<void> token(nullptr, [released = released_](void*) { released->signal(); });
  session_.recorder().downloadFirstFlashFile(
      path_,
      [watch = watch_, token = std::move(token)](std::uint64_t done, std::uint64_t total) {
        watch->onProgress(done, total);
      },
      [watch = watch_](const MaybeError& error) { watch->onCompletion(error); });

  DownloadOutcome outcome = watch_->waitForEnd();
  // It would go on for seconds and then clear the deletion that the library sends next.
  session_.recorder().stopMonitorTimer();
  if (outcome.end != DownloadEnd::complete) takeRest(outcome.end);
  return outcome;
}

// The link is stopped: no packet comes any more, but some may wait for the disk. The receiver of packets,
// which holds the download, has to go for the token to go. Without a receiver no packet was awaited yet; the
// library may then wait seconds for an answer, which is not worth waiting for.
void Download::takeRest(DownloadEnd end) {
  constexpr Duration longestWrite = std::chrono::seconds(10);
  KWTBluetoothHelper& recorder = session_.recorder();
  const bool awaitedPackets = recorder.writeDataBlock() != nullptr;
  recorder.setWriteDataBlock(nullptr);
  recorder.setCompletionBlock(nullptr);
  if (awaitedPackets || end == DownloadEnd::stalled) released_->wait(longestWrite);
}

std::optional<Deletion> Download::waitForDeletion() {
  constexpr Duration longestNoticeAndDeletion = std::chrono::seconds(10);
  return watch_->waitForDeletion(longestNoticeAndDeletion);
}

}  // namespace kwtsdk::tool
