#include "tools/download.h"

#include <chrono>
#include <cstdlib>
#include <utility>

#include <kwtsdk/files.h>

namespace kwtsdk::tool {
namespace {

/// An error as the library's log lines show it; none for "(null)".
MaybeError errorOfLogText(std::string_view text) {
  constexpr std::string_view domainMark = "Error Domain=", codeMark = " Code=";
  if (text == "(null)") return std::nullopt;
  const std::size_t codeAt = text.find(codeMark), quote = text.find('"');
  if (!text.starts_with(domainMark) || codeAt == text.npos || quote == text.npos) {
    return Error("", 0, {{"NSLocalizedDescription", std::string(text)}});
  }
  const std::string domain(text.substr(domainMark.size(), codeAt - domainMark.size()));
  const auto code = std::strtoll(std::string(text.substr(codeAt + codeMark.size())).c_str(), nullptr, 10);
  std::string description(text.substr(quote + 1));
  if (description.ends_with('"')) description.pop_back();
  return Error(domain, code, {{"NSLocalizedDescription", description}});
}

}  // namespace

DownloadWatch::DownloadWatch(Scheduler& scheduler, std::string path, std::function<void()> disconnect)
    : path_(std::move(path)),
      ended_(scheduler.semaphore("kwt.download.end")),
      deletionEnded_(scheduler.semaphore("kwt.download.deletion")),
      disconnect_(std::move(disconnect)),
      line_(scheduler) {}

void DownloadWatch::onProgress(std::uint64_t done, std::uint64_t total) {
  const internal::MutexLock lock(mutex_);
  if (outcome_) return;
  total_ = total;
  // The last call names the total whatever arrived; onCompletion judges that.
  if (done < total && sizeOnDisk() < done) {
    return end(DownloadEnd::unwritable, std::nullopt, "something else removed or shortened it");
  }
  line_.show(done, total);
}

void DownloadWatch::onCompletion(const MaybeError& error) {
  const internal::MutexLock lock(mutex_);
  if (error) return end(DownloadEnd::refused, error);
  // Lost packets leave no gap: what follows them moves up, and the file ends early.
  end(sizeOnDisk() < total_ ? DownloadEnd::incomplete : DownloadEnd::complete);
}

void DownloadWatch::onLogLine(std::string_view line) {
  constexpr std::string_view deletionMark = "Delete fileId(", errorMark = "error:";
  const std::string cannotWrite = "Cannot write " + path_ + ": ";
  const internal::MutexLock lock(mutex_);
  if (line == "Timeout!") {
    end(DownloadEnd::stalled);
  } else if (line.starts_with(cannotWrite)) {
    line.remove_prefix(cannotWrite.size());
    end(DownloadEnd::unwritable, std::nullopt, std::string(line.substr(0, line.find(';'))));
  } else if (line.starts_with(deletionMark) && line.find(errorMark) != line.npos) {
    deletion_ = Deletion{errorOfLogText(line.substr(line.find(errorMark) + errorMark.size()))};
    deletionEnded_->signal();
  }
}

void DownloadWatch::onLinkLost() {
  const internal::MutexLock lock(mutex_);
  end(DownloadEnd::linkLost);
  deletionEnded_->signal();
}

void DownloadWatch::onInterrupt() {
  const internal::MutexLock lock(mutex_);
  end(DownloadEnd::interrupted);
  deletionEnded_->signal();
}

DownloadOutcome DownloadWatch::waitForEnd() {
  ended_->wait(std::nullopt);
  const internal::MutexLock lock(mutex_);
  return *outcome_;
}

std::optional<Deletion> DownloadWatch::waitForDeletion(Duration timeout) {
  deletionEnded_->wait(timeout);
  const internal::MutexLock lock(mutex_);
  return deletion_;
}

void DownloadWatch::end(DownloadEnd how, const MaybeError& error, const std::string& reason) {
  if (outcome_) return;
  outcome_ = {how, error, reason};
  line_.clear();
  if (how != DownloadEnd::complete) disconnect_();
  ended_->signal();
}

std::uint64_t DownloadWatch::sizeOnDisk() const { return static_cast<std::uint64_t>(fileSize(path_)); }

Download::Download(Session& session, std::string path)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<DownloadWatch>(
          session.scheduler(), path_, [&connection = session.connection()] { connection.disconnect(); })),
      released_(session.scheduler().semaphore("kwt.download.released")) {
  session_.log().observe([watch = watch_](std::string_view line) { watch->onLogLine(line); });
  session_.connection().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

Download::~Download() {
  session_.disconnectOnInterrupt();
  session_.connection().setOnDisconnect(nullptr);
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
