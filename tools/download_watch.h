#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "tools/progress_line.h"

namespace kwtsdk::tool {

enum class DownloadEnd {
  complete,
  incomplete,  // the recorder sent its end, but bytes are missing
  refused,     // by the library or the recorder
  stalled,     // no packets for seconds
  linkLost,
  interrupted,
  unwritable,
};

struct DownloadOutcome {
  DownloadEnd end;
  MaybeError error;    // of `refused`
  std::string reason;  // of `unwritable`
};

/// How the recorder's deletion of its copy ended.
struct Deletion {
  MaybeError error;
};

/// What happens to a running download, told on the library's threads and waited for on the tool's. The
/// completion reports neither packets that stop coming nor a lost link nor a full disk, so the first of all
/// signs decides. Every end but a good one stops the link on the spot: the recorder must not be told to
/// delete what was not saved.
class DownloadWatch {
 public:
  DownloadWatch(Scheduler& scheduler, std::string path, std::function<void()> stopLink);

  void onProgress(std::uint64_t done, std::uint64_t total);
  void onCompletion(const MaybeError& error);
  void onLogLine(std::string_view line);
  void onLinkLost();
  void onInterrupt();

  /// Called once.
  DownloadOutcome waitForEnd();

  /// After a good end; none without word of it.
  std::optional<Deletion> waitForDeletion(Duration timeout);

 private:
  void end(DownloadEnd how, const MaybeError& error = std::nullopt, const std::string& reason = "");
  std::uint64_t sizeOnDisk() const;

  const std::string path_;
  const std::shared_ptr<Semaphore> ended_, deletionEnded_;
  std::function<void()> stopLink_;  // not called after the end
  std::mutex mutex_;
  ProgressLine line_;
  std::uint64_t total_ = 0;
  std::optional<DownloadOutcome> outcome_;
  std::optional<Deletion> deletion_;
};

}  // namespace kwtsdk::tool
