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
  DeliveryScope* const scope = outermost();
  if (scope == nullptr) {
    semaphore->signal();
  } else {
    scope->signals_.push_back(std::move(semaphore));
  }
}

bool DeliveryScope::withdraw(const std::shared_ptr<Semaphore>& semaphore) {
  DeliveryScope* const scope = outermost();
  return scope != nullptr && std::erase(scope->signals_, semaphore) > 0;
}

DeliveryScope* DeliveryScope::outermost() {
  DeliveryScope* scope = innermost;
  while (scope != nullptr && scope->outer_ != nullptr) scope = scope->outer_;
  return scope;
}

CallbackSlot::Generation DeliveryScope::generationOf(const CallbackSlot& slot) {
  return innermost != nullptr && innermost->slot_ == &slot ? innermost->generation_ : slot.generation();
}

}  // namespace kwtsdk::internal
