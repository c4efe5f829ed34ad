#include "channel/delivery_scope.h"

#include <utility>

namespace kwtsdk::internal {
namespace {

thread_local DeliveryScope* innermost = nullptr;

}  // namespace

DeliveryScope::DeliveryScope(SendGate& gate, const CallbackSlot* slot, CallbackSlot::Generation generation)
    : gate_(gate), slot_(slot), generation_(generation), outer_(std::exchange(innermost, this)) {}

DeliveryScope::~DeliveryScope() {
  innermost = outer_;
  for (auto& semaphore : signals_) {
    gate_.whenFree([semaphore = std::move(semaphore)] { semaphore->signal(); });
  }
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
