#include "channel/dispatcher.h"

#include <functional>
#include <utility>

#include "codec/error_codes.h"

namespace kwtsdk::internal {

/// A command that this thread is calling. A host that has wrapped a handler calls another one inside.
struct Dispatcher::Call {
  Call(const Dispatcher& its, SharedCommand called, std::optional<bool> notification)
      : outer(std::exchange(innermost, this)),
        dispatcher(its),
        command(std::move(called)),
        isNotification(notification.value_or(outer == nullptr || outer->isNotification)) {}
  ~Call() { innermost = outer; }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  static thread_local Call* innermost;
  Call* const outer;
  const Dispatcher& dispatcher;
  const SharedCommand command;
  const bool isNotification;
};

thread_local Dispatcher::Call* Dispatcher::Call::innermost = nullptr;

void Dispatcher::giveUp(const SharedCommand& removed) {
  if (removed) removed->giveUp();
  // Without a link no acknowledgement will come.
  contexts_.releaseHeld([this] { return !binding_.connected(); });
}

void Dispatcher::clear(const SharedCommand& command) {
  if (command && pending_.clearIf(command)) giveUp(command);
}

std::optional<Error> Dispatcher::write(const SharedCommand& command) {
  const Command::Plan& plan = command->plan;
  if (busy()) return dispatcherBusyError(plan.type);
  if (!binding_.connected()) return disconnectedError();
  const auto characteristic = binding_.find(plan.writeTo, characteristic_property::write);
  if (!characteristic) return characteristicNotFoundError(plan.writeTo);
  const auto held = plan.untilAcknowledged;
  // Stored before the context is attached: a late acknowledgement of the command before, in between, would
  // take the context away from this one.
  store(command->hasHandler() ? command : nullptr);
  contexts_.attach(characteristic, plan.type, held);
  if (binding_.write(plan.frame, characteristic)) return std::nullopt;
  // No acknowledgement will come for a write that was never started, unless it came before the exception.
  if (held) contexts_.release(held);
  if (command->claimed()) return std::nullopt;
  pending_.clearIf(command);
  return exceptionError("The peripheral threw when it was asked to write.");
}

void Dispatcher::refuse(const SharedCommand& command, const MaybeError& error,
                        const SharedCommand& inItsWay) {
  log_.error("Error:%@", error);
  if (!command->claim()) return;
  call(command, error, std::nullopt, false, inItsWay);
  letGo(command);
}

void Dispatcher::didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic) return;
  const auto acknowledged = contexts_.oldestHeld(characteristic);
  const auto context = contexts_.find(characteristic);
  const std::int64_t type = context ? context->cmdType() : static_cast<std::int64_t>(KWTCmdTypeNone);
  if (error || type == KWTCmdTypeUpdateSendData) {
    complete(pending(), error, binding_.valueText(*characteristic), false);
    contexts_.detach(characteristic, context);
  }
  cmdType = type;
  // Of a command that is no longer pending; one that has just been called has seen to it.
  if (const auto held = acknowledged.lock()) contexts_.release(held);
}

void Dispatcher::didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic || cmdType == KWTCmdTypeNone) return;
  const auto context = contexts_.find(characteristic);
  bool isKnown = true;
  const Reply text = binding_.valueText(*characteristic, &isKnown);
  if (const auto packets = receiver.get()) {
    callHost(log_, *packets, isKnown ? error : noResourcesError(), text);
  } else if (isKnown) {
    complete(pending(), error, text, true);
  } else {  // it may have been the answer
    complete(pending(), noResourcesError(), std::nullopt, false);
  }
  contexts_.detach(characteristic, context);
}

Dispatcher::Delivery Dispatcher::complete(const SharedCommand& command, const MaybeError& error,
                                          const Reply& reply, std::optional<bool> isNotification) {
  if (!command) return Delivery::nothingPending;
  if (!command->claim()) return Delivery::byAnother;
  call(command, error, reply, isNotification, command);
  clear(command);
  // Called by a host's wrapper: whoever waits for it must not find the facade busy with the wrapper.
  for (Call* outer = Call::innermost; outer != nullptr; outer = outer->outer) {
    if (&outer->dispatcher == this) clear(outer->command);
  }
  letGo(command);
  return Delivery::completed;
}

void Dispatcher::call(const SharedCommand& command, const MaybeError& error, const Reply& reply,
                      std::optional<bool> isNotification, const SharedCommand& inItsWay) {
  const auto endIt = [&] {
    if (command->subscription) binding_.unsubscribe(command->subscription);
    if (command->plan.clearsPending) clear(inItsWay);
  };
  const std::function<void()> cleanUp = std::ref(endIt);  // which needs no memory
  {
    const Call call(*this, command, isNotification);
    const auto answer = [&](const MaybeError& why, const Reply& what) {
      return guardedCall(log_, "A host callback", [&] {
        command->call({why, what, call.isNotification, cleanUp, *command});
      });
    };
    // A handler of the library's own throws where there is no memory to decode the answer, and calls nobody
    // before.
    if (!answer(error, reply) && !command->block) answer(noResourcesError(), std::nullopt);
  }
  endIt();
}

void Dispatcher::letGo(const SharedCommand& command) {
  if (const auto held = std::exchange(command->plan.untilAcknowledged, nullptr)) contexts_.release(held);
  Command::Plan handlers = command->takeHandlers();
  // Behind the end of the subscription, which may have been left to the gate's holder. A command without one
  // must not wait for that: the holder may be who waits for it.
  if (command->subscription) gate_.letGo(std::move(handlers));
}

}  // namespace kwtsdk::internal
