#include "channel/context_table.h"

namespace kwtsdk {

KWTContext KWTContext::contextWithCmdType(std::int64_t cmdType) { return KWTContext(cmdType); }

namespace internal {

void ContextTable::attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType) {
  auto context = std::make_shared<const KWTContext>(KWTContext::contextWithCmdType(cmdType));
  const std::lock_guard lock(mutex_);
  contexts_[characteristic] = std::move(context);
}

ContextTable::Context ContextTable::find(const std::shared_ptr<Characteristic>& characteristic) const {
  const std::lock_guard lock(mutex_);
  const auto found = contexts_.find(characteristic);
  return found == contexts_.end() ? nullptr : found->second;
}

void ContextTable::detach(const std::shared_ptr<Characteristic>& characteristic, const Context& seen) {
  const std::lock_guard lock(mutex_);
  const auto found = contexts_.find(characteristic);
  if (found != contexts_.end() && found->second == seen) contexts_.erase(found);
}

}  // namespace internal
}  // namespace kwtsdk
