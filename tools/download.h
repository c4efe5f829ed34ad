#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "tools/session.h"
#include "tools/terminal.h"

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
/// signs decides. Every end but a good one disconnects on the spot: the recorder must not be told to
/// delete what was not saved.
class DownloadWatch {
 public:
  DownloadWatch(Scheduler& scheduler, std::string path, std::function<void()> disconnect);

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
  void end(DownloadEnd how, const MaybeError& error = std::nullopt, const std::string& reason = "")
      KWT_REQUIRES(mutex_);
  std::uint64_t sizeOnDisk() const;

  const std::string path_;
  const std::shared_ptr<Semaphore> ended_, deletionEnded_;
  std::function<void()> disconnect_;  // not called after the end
  internal::Mutex mutex_;
  ProgressLine line_ KWT_GUARDED_BY(mutex_);
  std::uint64_t total_ KWT_GUARDED_BY(mutex_) = 0;
  std::optional<DownloadOutcome> outcome_ KWT_GUARDED_BY(mutex_);
  std::optional<Deletion> deletion_ KWT_GUARDED_BY(mutex_);
};

/// One download of the first recording into a file, until its end whatever that is. Ctrl-C ends it too.
class Download {
 public:
  Download(Session& session, std::string path);
  ~Download();
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;

  /// When this returns, all that arrived is in the file and nothing more will be written to it.
  DownloadOutcome run();

  /// After a good end; none without word of it.
  std::optional<Deletion> waitForDeletion();

 private:
  void takeRest(DownloadEnd end);

  Session& session_;
  const std::string path_;
  const std::shared_ptr<DownloadWatch> watch_;
  const std::shared_ptr<Semaphore> released_;
};

}  // namespace kwtsdk::tool
