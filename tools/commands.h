#pragma once

#include <string>

#include "tools/output.h"
#include "tools/session.h"

namespace kwtsdk::tool {

// The commands. Each throws a Failure when the recorder or a file says no.

void runInfo(const Host& host, Output& output);
void runList(const Host& host, Output& output);

/// Downloads the first recording, after which the recorder deletes it. An empty `file` is a name made from
/// the recording's.
void runPull(const Host& host, const std::string& file, Output& output);

void runRemove(const Host& host, Output& output);

/// All of it against a fresh simulated recorder.
void runTour(const Host& host, Output& output);

}  // namespace kwtsdk::tool
