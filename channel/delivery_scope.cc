#include "channel/delivery_scope.h"

#include <utility>

namespace kwtsdk::internal {
namespace {

thread_local DeliveryScope* innermost = nullptr;

}  // namespace

DeliveryScope::DeliveryScope(const CallbackSlot* slot, CallbackSlot::Generation generation)
    : slot_(slot), generation_(generation), outer_(std::exchange(innermost, this)) {}

DeliveryScope::~DeliveryScope() {
  innermost = outer_;
  for (const auto& semaphore : signals_) semaphore->signal();
}

void DeliveryScope::signal(std::shared_ptr<Semaphore> semaphore) {
  DeliveryScope* scope = innermost;
  if (scope == nullptr) {
    semaphore->signal();
    return;
  }
  while (scope->outer_ != nullptr) scope = scope->outer_;
  scope->signals_.push_back(std::move(semaphore));
}

CallbackSlot::Generation DeliveryScope::generationOf(const CallbackSlot& slot) {
  return innermost != nullptr && innermost->slot_ == &slot ? innermost->generation_ : slot.generation();
}

}  // namespace kwtsdk::internal
