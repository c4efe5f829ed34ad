#pragma once

#include <functional>
#include <memory>
#include <vector>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/link.h>

#include "tools/recorded_trace.h"

namespace kwtsdk::tool {

/// A link whose recorder says what a trace has it say: behind each frame that is written as in the trace
/// comes what came there, after as long. A frame that the trace does not have is acknowledged, and never
/// answered.
class ReplayLink : public session::Link {
 public:
  static std::shared_ptr<ReplayLink> create(std::shared_ptr<Scheduler> scheduler, RecordedTrace trace);

  /// The frames of the trace that have not been written, in order.
  virtual std::vector<Bytes> rest() const = 0;

  /// Goes on behind the first of them, which the library does not write.
  virtual void skip() = 0;

  /// Called, on the link's thread, when a frame is due that has not been written: it may be up to the host.
  virtual void setOnDue(std::function<void(const Bytes&)> onDue) = 0;
};

}  // namespace kwtsdk::tool
