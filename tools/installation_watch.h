#pragma once

#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "tools/handover.h"
#include "tools/progress_line.h"

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
  void onAccepted(std::uint8_t code);
  void onSegmentConfirmed();
  void end(InstallationEnd how);
  void endHeld(InstallationEnd how);
  Duration lastSign() const;

  const Scheduler& scheduler_;
  const std::uint64_t imageSize_;
  const std::function<std::int64_t()> mtu_;
  Handover<InstallationEnd> ended_;
  Handover<MaybeError> completed_;
  mutable std::mutex mutex_;
  ProgressLine line_;
  InstallationStep step_ = InstallationStep::prepare;
  std::uint64_t confirmed_ = 0;
  Duration lastSign_;
  bool isOver_ = false;
};

}  // namespace kwtsdk::tool
