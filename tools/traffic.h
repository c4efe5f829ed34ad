#pragma once

#include <memory>
#include <vector>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/session/link.h>

namespace kwtsdk::tool {

/// Sees what passes a link. Called on the session's worker and on the link's thread, also at once; must not
/// throw.
class TrafficObserver {
 public:
  using Characteristics = std::vector<std::shared_ptr<Characteristic>>;

  virtual ~TrafficObserver();
  virtual void opened(const Peripheral& peripheral, const Characteristics& characteristics) = 0;
  virtual void subscribed(const Characteristic& characteristic, bool enabled) = 0;
  virtual void written(const Characteristic& characteristic, const Bytes& frame) = 0;
  virtual void acknowledged(const Characteristic& characteristic, const MaybeError& error) = 0;
  virtual void notified(const Characteristic& characteristic, const Bytes& frame) = 0;
  virtual void closed() = 0;
};

/// The same link, which the observers see, in their order.
std::shared_ptr<session::Link> observed(std::shared_ptr<session::Link> link,
                                        std::vector<std::shared_ptr<TrafficObserver>> observers);

}  // namespace kwtsdk::tool
