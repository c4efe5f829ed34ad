#pragma once

#include <cstdint>

namespace kwtsdk {

/// What one notification means to a live recording.
enum class RecordPacketResult : std::int64_t {
  Continue = 0,  // the recording goes on
  Ended = 1,     // the recorder ended it
  Failed = 2,    // the recorder refused to start, or the notification was empty
};

}  // namespace kwtsdk
