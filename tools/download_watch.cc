#include "tools/download_watch.h"

#include <utility>

#include <kwtsdk/files.h>

#include "tools/observed_log.h"

namespace kwtsdk::tool {

DownloadWatch::DownloadWatch(Scheduler& scheduler, std::string path, std::function<void()> stopLink)
    : path_(std::move(path)),
      ended_(scheduler.semaphore("kwt.download.end")),
      deletionEnded_(scheduler.semaphore("kwt.download.deletion")),
      stopLink_(std::move(stopLink)),
      line_(scheduler) {}

void DownloadWatch::onProgress(std::uint64_t done, std::uint64_t total) {
  const std::lock_guard lock(mutex_);
  if (outcome_) return;
  total_ = total;
  // The last call names the total whatever arrived; onCompletion judges that.
  if (done < total && sizeOnDisk() < done) {
    return end(DownloadEnd::unwritable, std::nullopt, "something else removed or shortened it");
  }
  line_.show(done, total);
}

void DownloadWatch::onCompletion(const MaybeError& error) {
  const std::lock_guard lock(mutex_);
  if (error) return end(DownloadEnd::refused, error);
  // Lost packets leave no gap: what follows them moves up, and the file ends early.
  end(sizeOnDisk() < total_ ? DownloadEnd::incomplete : DownloadEnd::complete);
}

void DownloadWatch::onLogLine(std::string_view line) {
  constexpr std::string_view deletionMark = "Delete fileId(", errorMark = "error:";
  const std::string cannotWrite = "Cannot write " + path_ + ": ";
  const std::lock_guard lock(mutex_);
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
  const std::lock_guard lock(mutex_);
  end(DownloadEnd::linkLost);
  deletionEnded_->signal();
}

void DownloadWatch::onInterrupt() {
  const std::lock_guard lock(mutex_);
  end(DownloadEnd::interrupted);
  deletionEnded_->signal();
}

DownloadOutcome DownloadWatch::waitForEnd() {
  ended_->wait(std::nullopt);
  const std::lock_guard lock(mutex_);
  return *outcome_;
}

std::optional<Deletion> DownloadWatch::waitForDeletion(Duration timeout) {
  deletionEnded_->wait(timeout);
  const std::lock_guard lock(mutex_);
  return deletion_;
}

void DownloadWatch::end(DownloadEnd how, const MaybeError& error, const std::string& reason) {
  if (outcome_) return;
  outcome_ = {how, error, reason};
  line_.clear();
  if (how != DownloadEnd::complete) stopLink_();
  ended_->signal();
}

std::uint64_t DownloadWatch::sizeOnDisk() const { return static_cast<std::uint64_t>(fileSize(path_)); }

}  // namespace kwtsdk::tool
