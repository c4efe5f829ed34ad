#include "channel/context_table.h"

#include <algorithm>
#include <utility>

namespace kwtsdk {

KWTContext KWTContext::contextWithCmdType(std::int64_t cmdType) { return KWTContext(cmdType); }

namespace internal {

void ContextTable::attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType,
                          const Held& held) {
  auto context = std::make_shared<const KWTContext>(KWTContext::contextWithCmdType(cmdType));
  Table gone;  // destroyed without the lock, with what it holds
  const MutexLock lock(mutex_);
  for (auto entry = table_.begin(); entry != table_.end();) {
    const auto next = std::next(entry);
    if (!entry->second.valid()) gone.insert(table_.extract(entry));
    entry = next;
  }
  Attachment& attachment = table_[characteristic.get()];
  attachment.characteristic = characteristic;
  attachment.owned = characteristic.use_count() > 0;
  attachment.context = std::move(context);
  if (held) attachment.held.push_back(held);
}

ContextTable::Context ContextTable::find(const std::shared_ptr<Characteristic>& characteristic) const {
  const MutexLock lock(mutex_);
  const auto found = table_.find(characteristic.get());
  return found != table_.end() && found->second.valid() ? found->second.context : nullptr;
}

void ContextTable::detach(const std::shared_ptr<Characteristic>& characteristic, const Context& seen) {
  const MutexLock lock(mutex_);
  const auto found = table_.find(characteristic.get());
  if (found != table_.end() && found->second.context == seen) found->second.context = nullptr;
}

std::weak_ptr<void> ContextTable::oldestHeld(const std::shared_ptr<Characteristic>& characteristic) const {
  const MutexLock lock(mutex_);
  const auto found = table_.find(characteristic.get());
  if (found == table_.end() || found->second.held.empty()) return {};
  return found->second.held.front();
}

void ContextTable::release(const Held& held) {
  // Whoever asks has a reference of his own: nothing is destroyed under the lock.
  const MutexLock lock(mutex_);
  for (auto& [key, attachment] : table_) std::erase(attachment.held, held);
}

void ContextTable::releaseHeld(const std::function<bool()>& giveUp) {
  if (anyHeld() == nullptr || !giveUp()) return;
  while (const Held held = anyHeld()) release(held);
}

ContextTable::Held ContextTable::anyHeld() const {
  const MutexLock lock(mutex_);
  const auto holding = [](const auto& entry) { return !entry.second.held.empty(); };
  const auto found = std::ranges::find_if(table_, holding);
  return found == table_.end() ? nullptr : found->second.held.front();
}

}  // namespace internal
}  // namespace kwtsdk
