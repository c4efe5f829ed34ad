#pragma once

#include <chrono>
#include <cstdint>
#include <string>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/file_header.h>

#include "tools/failure.h"
#include "tools/session.h"

namespace kwtsdk::tool {

// Queries whose missing answer is a Failure that says so.

bool isConnected(Session& session);

/// The recorder did not answer in the time that it had, or the connection is gone. The library's blocking
/// forms wait for 5 s.
Failure noAnswer(Session& session, Duration waited = std::chrono::seconds(5));

/// The pause that a recorder needs between two commands.
void pause(Session& session);

/// The battery level. The first query of every command: it wakes the recorder.
std::int64_t batteryLevel(Session& session);

/// Such as "1.2.3".
std::string firmwareVersion(Session& session);

FlashInfo storeInfo(Session& session);

struct FirstRecording {
  std::int64_t id;
  KWTFileHeader header;
};

/// A Failure also when the recorder holds no recordings.
FirstRecording firstRecording(Session& session);

}  // namespace kwtsdk::tool
