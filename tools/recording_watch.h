#pragma once

#include <mutex>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "tools/handover.h"

namespace kwtsdk::tool {

enum class RecordingEnd {
  timeOver,
  interrupted,
  key,       // on the recorder
  call,      // which the recorder entered
  recorder,  // ended it for another reason
  linkLost,
  unwritable,
  notStopped,  // the recorder did not confirm that it stopped
};

/// What happens to a live recording, told on the library's threads and waited for on the tool's. The
/// library's completions tell neither the reason of a refusal nor the recorder's own end, nor always the end
/// that the host asked for: the notifications do.
class RecordingWatch {
 public:
  enum class Refusal { inCall, notInCall };
  struct Answer {
    MaybeError error;
    bool linkLost = false;
  };

  explicit RecordingWatch(Scheduler& scheduler);

  void onNotification(const Bytes& value);
  void onStarted(const MaybeError& error) { started_.put({error}); }
  void onStopped(const MaybeError& error) { stopped_.put({error}); }
  void onLinkLost();
  void onInterrupt() { ended_.put(RecordingEnd::interrupted); }

  /// None when the time runs out.
  std::optional<Answer> waitForStart(Duration timeout) { return started_.take(timeout); }
  std::optional<RecordingEnd> waitForEnd(Duration timeout) { return ended_.take(timeout); }
  std::optional<Answer> waitForStop(Duration timeout) { return stopped_.take(timeout); }

  /// Why the start failed, if the recorder said so.
  std::optional<Refusal> refusal() const;

  /// The end that the recorder told, also when another one came first.
  std::optional<RecordingEnd> endOfRecorder() const;

 private:
  void endByRecorder(RecordingEnd end);

  Handover<Answer> started_, stopped_;
  Handover<RecordingEnd> ended_;
  mutable std::mutex mutex_;
  std::optional<Refusal> refusal_;
  std::optional<RecordingEnd> endOfRecorder_;
};

}  // namespace kwtsdk::tool
