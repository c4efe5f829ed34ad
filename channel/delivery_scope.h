#pragma once

#include <memory>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "channel/callback_slot.h"
#include "channel/send_gate.h"

namespace kwtsdk::internal {

/// Marks that this thread is delivering an event. A signal for one of the library's own waiters, raised
/// inside, fires when the outermost scope of the thread ends: the waiter cannot outrun the clean-up of the
/// command that woke it. Scopes nest.
class DeliveryScope {
 public:
  explicit DeliveryScope(SendGate& gate) : DeliveryScope(gate, nullptr, 0) {}

  /// For calling a callback of `slot` that belongs to `generation`.
  DeliveryScope(SendGate& gate, const CallbackSlot* slot, CallbackSlot::Generation generation);
  ~DeliveryScope();
  DeliveryScope(const DeliveryScope&) = delete;
  DeliveryScope& operator=(const DeliveryScope&) = delete;

  /// Signals at the end of the outermost scope; at once outside of any.
  static void signal(std::shared_ptr<Semaphore> semaphore);

  /// Takes back a signal that waits for the end of this thread's scopes; false when there is none.
  static bool withdraw(const std::shared_ptr<Semaphore>& semaphore);

  /// The newest generation of `slot` that a callback called by the innermost scope may clear: its own.
  /// Outside of a delivery from that slot, the slot's newest.
  static CallbackSlot::Generation generationOf(const CallbackSlot& slot);

 private:
  static DeliveryScope* outermost();

  SendGate& gate_;
  const CallbackSlot* slot_;
  CallbackSlot::Generation generation_;
  DeliveryScope* outer_;
  std::vector<std::shared_ptr<Semaphore>> signals_;  // used in the outermost scope only
};

}  // namespace kwtsdk::internal
