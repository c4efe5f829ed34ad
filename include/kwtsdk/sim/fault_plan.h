#pragma once

#include <cstddef>

#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

/// What passes the link and can go wrong there.
enum class LinkEvent { write, acknowledgement, notification, subscription };

enum class Fault {
  none,
  drop,
  delay,      // what comes behind waits too
  duplicate,  // arrives twice
  corrupt,    // one byte arrives inverted
  refuse,     // a write: the recorder never sees it; an acknowledgement: it has acted, but reports an error
  disconnect,
};

struct FaultAction {
  Fault fault = Fault::none;
  Duration delay{0};
  std::size_t position = 0;  // of the byte that `corrupt` inverts, modulo the length
};

/// Which faults make sense for which event: only what carries bytes can be corrupted, only what is answered
/// can be refused.
KWTSDK_EXPORT bool faultApplies(Fault fault, LinkEvent event);

/// Decides, event by event, what goes wrong. Called on the link's thread.
class KWTSDK_EXPORT FaultPlan {
 public:
  virtual ~FaultPlan();
  virtual FaultAction next(LinkEvent event) = 0;
};

}  // namespace kwtsdk::sim
