#include "channel/context_table.h"

namespace kwtsdk {

KWTContext KWTContext::contextWithCmdType(std::int64_t cmdType) { return KWTContext(cmdType); }

namespace internal {

void ContextTable::attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType) {
  auto context = std::make_shared<const KWTContext>(KWTContext::contextWithCmdType(cmdType));
  const std::lock_guard lock(mutex_);
  std::erase_if(contexts_, [](const auto& item) { return item.second.characteristic.expired(); });
  contexts_[characteristic.get()] = {characteristic, std::move(context)};
}

ContextTable::Context ContextTable::find(const std::shared_ptr<Characteristic>& characteristic) const {
  const std::lock_guard lock(mutex_);
  const auto found = contexts_.find(characteristic.get());
  const bool attached = found != contexts_.end() && !found->second.characteristic.expired();
  return attached ? found->second.context : nullptr;
}

void ContextTable::detach(const std::shared_ptr<Characteristic>& characteristic, const Context& seen) {
  const std::lock_guard lock(mutex_);
  const auto found = contexts_.find(characteristic.get());
  if (found != contexts_.end() && found->second.context == seen) contexts_.erase(found);
}

}  // namespace internal
}  // namespace kwtsdk
