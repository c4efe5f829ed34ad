#pragma once

#include <memory>
#include <mutex>
#include <unordered_map>

#include <kwtsdk/context.h>
#include <kwtsdk/peripheral.h>

namespace kwtsdk::internal {

/// The context attached to each characteristic, by object identity; at most one each. It does not keep the
/// characteristic alive. Any thread.
class ContextTable {
 public:
  using Context = std::shared_ptr<const KWTContext>;

  /// Replaces the characteristic's context.
  void attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType);
  Context find(const std::shared_ptr<Characteristic>& characteristic) const;

  /// Removes `seen`, and only that one: a command written meanwhile keeps its own.
  void detach(const std::shared_ptr<Characteristic>& characteristic, const Context& seen);

 private:
  mutable std::mutex mutex_;
  struct Attachment {
    std::weak_ptr<Characteristic> characteristic;  // tells whether the address still means the same object
    Context context;
  };
  std::unordered_map<const Characteristic*, Attachment> contexts_;
};

}  // namespace kwtsdk::internal
