#include "channel/context_table.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace kwtsdk {

KWTContext KWTContext::contextWithCmdType(std::int64_t cmdType) { return KWTContext(cmdType); }

namespace internal {

void ContextTable::attach(const std::shared_ptr<Characteristic>& characteristic, std::int64_t cmdType,
                          Held held) {
  auto context = std::make_shared<const KWTContext>(KWTContext::contextWithCmdType(cmdType));
  Table gone;  // destroyed without the lock, with what it holds
  const MutexLock lock(mutex_);
  for (auto entry = table_.begin(); entry != table_.end();) {
    const auto next = std::next(entry);
    if (!entry->second.valid()) gone.insert(table_.extract(entry));
    entry = next;
  }
  Attachment& attachment = table_[characteristic.get()];
  if (!held) held = std::move(attachment.held);
  attachment = {characteristic, characteristic.use_count() > 0, std::move(context), std::move(held)};
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

ContextTable::Held ContextTable::takeHeld(const std::shared_ptr<Characteristic>& characteristic) {
  const MutexLock lock(mutex_);
  const auto found = table_.find(characteristic.get());
  return found != table_.end() ? std::exchange(found->second.held, nullptr) : nullptr;
}

void ContextTable::release(const Held& held) {
  Held released;
  const MutexLock lock(mutex_);
  for (auto& [key, attachment] : table_) {
    if (attachment.held == held) released.swap(attachment.held);
  }
}

void ContextTable::releaseHeld(const std::function<bool()>& giveUp) {
  const auto holds = [](const auto& entry) { return entry.second.held != nullptr; };
  {
    const MutexLock lock(mutex_);
    if (std::ranges::none_of(table_, holds)) return;
  }
  if (!giveUp()) return;
  std::vector<Held> released;
  const MutexLock lock(mutex_);
  for (auto& [key, attachment] : table_) released.push_back(std::exchange(attachment.held, nullptr));
}

}  // namespace internal
}  // namespace kwtsdk
