#include "channel/dispatcher.h"

#include <utility>

#include "codec/error_codes.h"

namespace kwtsdk::internal {

/// A command that this thread is calling. What it calls inside, when a host has wrapped a handler and stored
/// it again, keeps its waiters until the outermost one has been cleared: they would find the facade busy.
struct Dispatcher::Call {
  explicit Call(std::optional<bool> notification)
      : outer(std::exchange(innermost, this)),
        isNotification(notification.value_or(outer == nullptr || outer->isNotification)) {}
  ~Call() { innermost = outer; }
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  static thread_local Call* innermost;
  Call* const outer;
  const bool isNotification;
  std::vector<SharedCommand> ended;
};

thread_local Dispatcher::Call* Dispatcher::Call::innermost = nullptr;

void Dispatcher::clear() {
  if (const auto removed = pending_.exchange(nullptr)) removed->drop();
  // Without a link no acknowledgement will come.
  contexts_.releaseHeld([this] { return !binding_.connected(); });
}

void Dispatcher::clear(const SharedCommand& command) {
  if (command && pending_.clearIf(command)) command->drop();
}

std::optional<Error> Dispatcher::write(const SharedCommand& command) {
  Command::Plan& plan = command->plan;
  if (busy()) return dispatcherBusyError(plan.type);
  if (!binding_.connected()) return disconnectedError();
  const auto characteristic = binding_.find(plan.writeTo, characteristic_property::write);
  if (!characteristic) return characteristicNotFoundError(plan.writeTo);
  contexts_.attach(characteristic, plan.type, plan.untilAcknowledged);
  store(command->hasHandler() ? command : nullptr);
  if (binding_.write(plan.frame, characteristic)) return std::nullopt;
  // No acknowledgement will come for a write that was never started, unless it came before the exception.
  contexts_.takeHeld(characteristic);
  if (command->claimed()) return std::nullopt;
  pending_.clearIf(command);
  return exceptionError("The peripheral threw when it was asked to write.");
}

void Dispatcher::refuse(const SharedCommand& command, const Error& error, const SharedCommand& inItsWay) {
  log_.error("Error:%@", description(error));
  command->plan.untilAcknowledged = nullptr;
  if (!command->claim()) return;
  std::vector<SharedCommand> ended{command};
  {
    Call call(false);
    const std::function<void()> clean = [&] { cleanUp(*command, inItsWay); };
    guardedCall(log_, "A host callback", [&] {
      command->call({error, std::nullopt, false, clean, *command});
    });
    ended.insert(ended.end(), call.ended.begin(), call.ended.end());
  }
  cleanUp(*command, inItsWay);
  letGo(ended);
}

void Dispatcher::didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic) return;
  const auto acknowledged = contexts_.takeHeld(characteristic);  // let go of at the end
  const auto context = contexts_.find(characteristic);
  const std::int64_t type = context ? context->cmdType() : static_cast<std::int64_t>(KWTCmdTypeNone);
  if (error || type == KWTCmdTypeUpdateSendData) {
    complete(pending(), error, binding_.valueText(*characteristic), false);
    contexts_.detach(characteristic, context);
  }
  cmdType = type;
}

void Dispatcher::didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic || cmdType == KWTCmdTypeNone) return;
  const auto context = contexts_.find(characteristic);
  const Reply text = binding_.valueText(*characteristic);
  if (const auto packets = receiver.get()) {
    callHost(log_, *packets, error, text);
  } else {
    complete(pending(), error, text, true);
  }
  contexts_.detach(characteristic, context);
}

Dispatcher::Delivery Dispatcher::complete(const SharedCommand& command, const MaybeError& error,
                                          const Reply& reply, std::optional<bool> isNotification) {
  if (!command) return Delivery::nothingPending;
  if (!command->claim()) return Delivery::byAnother;
  std::vector<SharedCommand> ended{command};
  Call* outer = nullptr;
  {
    Call call(isNotification);
    outer = call.outer;
    const std::function<void()> clean = [&] { cleanUp(*command, command); };
    guardedCall(log_, "A host callback", [&] {
      command->call({error, reply, call.isNotification, clean, *command});
    });
    ended.insert(ended.end(), call.ended.begin(), call.ended.end());
  }
  cleanUp(*command, command);
  clear(command);
  if (const auto held = std::exchange(command->plan.untilAcknowledged, nullptr)) contexts_.release(held);
  if (outer != nullptr) {
    outer->ended.insert(outer->ended.end(), ended.begin(), ended.end());
  } else {
    letGo(ended);
  }
  return Delivery::completed;
}

void Dispatcher::cleanUp(Command& command, const SharedCommand& inItsWay) {
  if (auto subscription = std::exchange(command.subscription, nullptr)) {
    binding_.unsubscribe(std::move(subscription));
  }
  if (command.plan.clearsPending) clear(inItsWay);
}

// Behind the end of its subscription, which may have been left to the gate's holder.
void Dispatcher::letGo(const std::vector<SharedCommand>& commands) {
  for (const auto& command : commands) {
    if (auto handler = command->takeHandler()) gate_.whenFree([handler = std::move(handler)] {});
  }
}

}  // namespace kwtsdk::internal
