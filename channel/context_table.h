#pragma once

#include <functional>
#include <memory>
#include <unordered_map>
#include <vector>

#include <kwtsdk/context.h>
#include <kwtsdk/peripheral.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

/// What is attached to each characteristic, by object identity: the context of the command written to it, and
/// what has to last until a write has been acknowledged. It does not keep the characteristic alive. Any
/// thread.
class ContextTable {
 public:
  using Context = std::shared_ptr<const KWTContext>;
  using Held = std::shared_ptr<void>;

  /// Replaces the characteristic's context. What is held for earlier writes stays.
  void attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType, const Held& held);
  Context find(const std::shared_ptr<Characteristic>& characteristic) const;

  /// Removes `seen`, and only that one: a command written meanwhile keeps its own.
  void detach(const std::shared_ptr<Characteristic>& characteristic, const Context& seen);

  /// What is held longest: acknowledgements come in the order of the writes.
  std::weak_ptr<void> oldestHeld(const std::shared_ptr<Characteristic>& characteristic) const;

  /// Lets go of this, whose acknowledgement is no longer waited for.
  void release(const Held& held);

  /// Lets go of all that is held if `giveUp` says so, which is asked only when there is something.
  void releaseHeld(const std::function<bool()>& giveUp);

 private:
  struct Attachment {
    std::weak_ptr<Characteristic> characteristic;  // tells whether the address still means the same object
    bool owned = true;                             // a shared_ptr without an owner tells nothing
    Context context;
    std::vector<Held> held;
    bool valid() const { return !owned || !characteristic.expired(); }
  };
  Held anyHeld() const;
  using Table = std::unordered_map<const Characteristic*, Attachment>;

  mutable Mutex mutex_;
  Table table_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::internal
