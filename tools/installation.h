#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "tools/handover.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace kwtsdk::tool {

enum class InstallationEnd {
  reported,    // by the library's completion
  unsendable,  // packets of the MTU that the recorder offers do not fit the image
  stalled,     // nothing was acknowledged or answered for a while
  linkLost,
  interrupted,
};

/// What an update has come to: the first of its steps that the recorder has not accepted yet.
enum class InstallationStep { prepare, partition, resume, begin, configuration, transfer, bye, accepted };

/// What happens to a running update, told on the library's threads and waited for on the tool's. The library
/// tells neither which step a time-out belongs to nor that an answer stays away, nor what has been confirmed;
/// the recorder's answers do.
class InstallationWatch {
 public:
  /// `mtu` is asked once the recorder has accepted the configuration, and not after the end.
  InstallationWatch(Scheduler& scheduler, std::uint64_t imageSize, std::function<std::int64_t()> mtu);

  void onNotification(const Bytes& value);
  void onAcknowledgement();
  void onCompletion(const MaybeError& error);
  void onLinkLost() { end(InstallationEnd::linkLost); }
  void onInterrupt();

  /// Called once. Nothing is shown after it.
  InstallationEnd waitForEnd(Duration longestSilence);

  /// The completion's error; none when the time runs out.
  std::optional<MaybeError> waitForCompletion(Duration timeout) { return completed_.take(timeout); }

  InstallationStep step() const;
  std::uint64_t confirmed() const;  // bytes

 private:
  void onAccepted(InstallationStep next) KWT_REQUIRES(mutex_);
  void onSegmentConfirmed() KWT_REQUIRES(mutex_);
  void end(InstallationEnd how);
  void endHeld(InstallationEnd how) KWT_REQUIRES(mutex_);
  Duration lastSign() const;

  const Scheduler& scheduler_;
  const std::uint64_t imageSize_;
  const std::function<std::int64_t()> mtu_;
  Handover<InstallationEnd> ended_;
  Handover<MaybeError> completed_;
  mutable internal::Mutex mutex_;
  ProgressLine line_ KWT_GUARDED_BY(mutex_);
  InstallationStep step_ KWT_GUARDED_BY(mutex_) = InstallationStep::prepare;
  std::uint64_t confirmed_ KWT_GUARDED_BY(mutex_) = 0;
  Duration lastSign_ KWT_GUARDED_BY(mutex_);
  bool isOver_ KWT_GUARDED_BY(mutex_) = false;
};

struct InstallationOutcome {
  InstallationEnd end;
  MaybeError error;  // of `reported`; none: installed
  InstallationStep step;
  std::uint64_t confirmed;  // bytes
};

/// One update with the image in a file, until its end whatever that is. Ctrl-C ends it too.
class Installation {
 public:
  Installation(Session& session, std::string path, std::uint64_t size);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  /// Every end that the library did not report has disconnected the link: the recorder then forgets the
  /// update, so that the next one starts cleanly.
  InstallationOutcome run();

 private:
  void abandon();

  Session& session_;
  const std::string path_;
  const std::shared_ptr<InstallationWatch> watch_;
};

}  // namespace kwtsdk::tool
