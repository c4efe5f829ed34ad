#pragma once

#include <string>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk::tool {

/// One thing that passed a link.
struct TraceEvent {
  enum class Kind { opened, written, acknowledged, refused, notified, closed };

  Kind kind;
  Duration at;  // since the trace's beginning
  Uuid characteristic{};
  Bytes frame{};
};

struct RecordedTrace {
  std::vector<TraceEvent> events;
  std::size_t longestWrite = 244;  // bytes
};

/// Of a btsnoop file what an attribute protocol's client and a recorder said to each other. Characteristics
/// that the file does not tell are known by what was written to them. Throws a Failure when it is none, or
/// has nothing of it.
RecordedTrace readTrace(const std::string& file);

}  // namespace kwtsdk::tool
