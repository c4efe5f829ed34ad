#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/files.h>
#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"
#include "tools/handover.h"
#include "tools/session.h"
#include "tools/terminal.h"

namespace kwtsdk::tool {

enum class CaptureEnd {
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
class CaptureWatch {
 public:
  enum class Refusal { inCall, notInCall };
  struct Answer {
    MaybeError error;
    bool linkLost = false;
  };

  explicit CaptureWatch(Scheduler& scheduler);

  /// As hex text.
  void onNotification(std::string_view value);
  void onStarted(const MaybeError& error) { started_.put({error}); }
  void onStopped(const MaybeError& error) { stopped_.put({error}); }
  void onLinkLost();
  void onInterrupt() { ended_.put(CaptureEnd::interrupted); }

  /// None when the time runs out.
  std::optional<Answer> waitForStart(Duration timeout) { return started_.take(timeout); }
  std::optional<CaptureEnd> waitForEnd(Duration timeout) { return ended_.take(timeout); }
  std::optional<Answer> waitForStop(Duration timeout) { return stopped_.take(timeout); }

  /// Why the start failed, if the recorder said so.
  std::optional<Refusal> refusal() const { return refusal_.get(); }

  /// The end that the recorder told, also when another one came first.
  std::optional<CaptureEnd> endOfRecorder() const;

 private:
  void endByRecorder(CaptureEnd end);

  Handover<Answer> started_, stopped_;
  Handover<CaptureEnd> ended_;
  internal::SharedField<std::optional<Refusal>> refusal_;
  mutable internal::Mutex mutex_;
  std::optional<CaptureEnd> endOfRecorder_ KWT_GUARDED_BY(mutex_);
};

struct CaptureOutcome {
  CaptureEnd end;
  MaybeError error;    // of `notStopped`, if there was one
  std::string reason;  // of `unwritable`
};

/// One live recording into a file, until its end whatever that is. Ctrl-C ends it too.
class LiveCapture {
 public:
  LiveCapture(Session& session, std::string path);
  ~LiveCapture();
  LiveCapture(const LiveCapture&) = delete;
  LiveCapture& operator=(const LiveCapture&) = delete;

  /// Without `length` until something ends it. When this returns, nothing more will be written to the file.
  /// Throws a Failure when the recording does not start.
  CaptureOutcome run(std::int64_t type, const std::optional<Duration>& length);

  /// What is in the file.
  opus::RecordingMeter::Reading measure() { return meter_.read(); }

 private:
  void start(std::int64_t type);
  CaptureEnd follow(const std::optional<Duration>& length);
  CaptureOutcome finish(CaptureEnd end);
  CaptureOutcome stop(CaptureEnd end);
  void endFile();
  void waitForFile();
  std::string writeFailure() const;

  Session& session_;
  const std::string path_;
  const std::shared_ptr<CaptureWatch> watch_;
  std::shared_ptr<FileHandle> file_;  // the library's; null if it could not open it
  opus::RecordingMeter meter_;
  RecordingLine line_;
};

}  // namespace kwtsdk::tool
