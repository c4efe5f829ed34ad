#include "channel/callback_slot.h"

#include <utility>

namespace kwtsdk::internal {

std::shared_ptr<CallbackSlot::Entry> CallbackSlot::current() const {
  const std::lock_guard lock(mutex_);
  return entry_;
}

ReplyHandler CallbackSlot::callback() const {
  const auto entry = current();
  return entry ? entry->callback : ReplyHandler();
}

CallbackSlot::Generation CallbackSlot::generation() const {
  const std::lock_guard lock(mutex_);
  return generation_;
}

std::shared_ptr<CallbackSlot::Entry> CallbackSlot::set(ReplyHandler callback) {
  std::shared_ptr<Entry> replaced;  // destroyed after the lock
  const std::lock_guard lock(mutex_);
  ++generation_;
  const auto stored = callback ? std::make_shared<Entry>(std::move(callback), generation_) : nullptr;
  replaced = std::exchange(entry_, stored);
  return stored;
}

void CallbackSlot::clearUpTo(Generation generation) {
  std::shared_ptr<Entry> removed;
  const std::lock_guard lock(mutex_);
  if (generation_ <= generation) removed.swap(entry_);
}

}  // namespace kwtsdk::internal
