#pragma once

#include <optional>
#include <string>

#include <kwtsdk/opus/live_conversion.h>
#include <kwtsdk/session/session.h>

#include "tools/output.h"
#include "tools/standard_streams.h"

namespace kwtsdk::tool {

struct RecordRequest {
  std::string file;                                    // or kStandardStream
  std::optional<opus::LiveConversion::Format> format;  // none: the recorder's packets as they are
  session::RecordOptions options;

  bool isPiped() const { return file == kStandardStream; }
};

/// What has become of a recording, in the file that was asked for.
struct RecordOutcome {
  session::Result<session::Recorded> result;
  std::optional<std::string> unwritten{};  // why the file is not complete
  bool isReaderGone = false;
};

/// Throws a Failure for what was no good end.
void reportRecording(const RecordRequest& request, const RecordOutcome& outcome, Output& output);

}  // namespace kwtsdk::tool
