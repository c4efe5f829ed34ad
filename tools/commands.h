#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include <kwtsdk/opus/conversion.h>

#include "tools/output.h"
#include "tools/session.h"

namespace kwtsdk::tool {

// The commands. Each throws a Failure when the recorder or a file says no.

struct ScanRequest {
  Duration time;
  bool all = false;  // also what does not look like a recorder
};

/// Needs no recorder; Ctrl-C ends it early.
void runScan(const Host& host, const ScanRequest& request, Output& output);

void runInfo(const Host& host, Output& output);
void runList(const Host& host, Output& output);

/// Downloads the first recording, after which the recorder deletes it. An empty `file` is a name made from
/// the recording's.
void runPull(const Host& host, const std::string& file, Output& output);

void runRemove(const Host& host, Output& output);

struct RecordRequest {
  std::string file;
  std::int64_t type = 0;           // as startRecordWithType takes it
  std::optional<Duration> length;  // none: until something ends it
};

/// Records live into a file that is new or empty.
void runRecord(const Host& host, const RecordRequest& request, Output& output);

/// Installs the firmware image in a file.
void runUpdate(const Host& host, const std::string& image, Output& output);

struct ConvertRequest {
  std::string input, output;
  opus::Format format = opus::Format::wav;
  bool replace = false;  // an output that exists
};

/// Needs no recorder.
void runConvert(const Host& host, const ConvertRequest& request, Output& output);

/// All of it against a fresh simulated recorder.
void runTour(const Host& host, Output& output);

}  // namespace kwtsdk::tool
