#pragma once

#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/files.h>
#include <kwtsdk/opus/recording_meter.h>

#include "tools/recording_line.h"
#include "tools/recording_watch.h"
#include "tools/session.h"

namespace kwtsdk::tool {

struct RecordingOutcome {
  RecordingEnd end;
  MaybeError error;    // of `notStopped`, if there was one
  std::string reason;  // of `unwritable`
};

/// One live recording into a file, until its end whatever that is. Ctrl-C ends it too.
class Recording {
 public:
  Recording(Session& session, std::string path);
  ~Recording();
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  /// Without `length` until something ends it. When this returns, nothing more will be written to the file.
  /// Throws a Failure when the recording does not start.
  RecordingOutcome run(std::int64_t type, const std::optional<Duration>& length);

  /// What is in the file.
  opus::RecordingMeter::Reading measure() { return meter_.read(); }

 private:
  void start(std::int64_t type);
  RecordingEnd follow(const std::optional<Duration>& length);
  RecordingOutcome finish(RecordingEnd end);
  RecordingOutcome stop(RecordingEnd end);
  void endFile();
  void waitForFile();
  std::string writeFailure() const;

  Session& session_;
  const std::string path_;
  const std::shared_ptr<RecordingWatch> watch_;
  std::shared_ptr<FileHandle> file_;  // the library's; null if it could not open it
  opus::RecordingMeter meter_;
  RecordingLine line_;
};

}  // namespace kwtsdk::tool
