#include "channel/dispatcher.h"

#include <utility>

#include "channel/delivery_scope.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"

namespace kwtsdk::internal {

void Dispatcher::send(const Bytes& frame, const std::string& characteristic, std::int64_t type,
                      ReplyHandler completion) {
  // Before the gate, so that a command sent inside a completion is refused without waiting for the gate's
  // holder.
  if (pending.occupied()) return reportRefusal({dispatcherBusyError(type), pending.generation()}, completion);
  std::optional<Refusal> refusal;
  {
    const SendGate::Hold hold(gate);
    refusal = sendHeld(frame, characteristic, type, completion);
  }
  if (refusal) reportRefusal(*refusal, completion);
}

std::optional<Dispatcher::Refusal> Dispatcher::sendHeld(const Bytes& frame, const std::string& uuid,
                                                        std::int64_t type, ReplyHandler completion) {
  const auto refuse = [&](Error error) { return Refusal{std::move(error), pending.generation()}; };
  if (pending.occupied()) return refuse(dispatcherBusyError(type));
  if (!link_.connected()) return refuse(disconnectedError());
  const auto characteristic = link_.find(uuid, characteristic_property::write);
  if (!characteristic) return refuse(characteristicNotFoundError(uuid));
  contexts_.attach(characteristic, type);
  const auto stored = pending.set(std::move(completion));
  if (link_.write(frame, characteristic)) return std::nullopt;
  // No acknowledgement will come for a write that was never started, unless it came before the exception.
  if (!stored || !stored->claim()) return std::nullopt;
  pending.clearUpTo(stored->generation);
  return refuse(exceptionError("The peripheral threw when it was asked to write."));
}

void Dispatcher::reportRefusal(const Refusal& refusal, const ReplyHandler& completion) {
  log_.error("Error:%@", description(refusal.error));
  const DeliveryScope scope(gate, &pending, refusal.generation);
  callHost(log_, completion, refusal.error, std::nullopt);
}

void Dispatcher::didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic) return;
  const DeliveryScope scope(gate);
  const auto context = contexts_.find(characteristic);
  const std::int64_t type = context ? context->cmdType() : static_cast<std::int64_t>(KWTCmdTypeNone);
  if (error || type == KWTCmdTypeUpdateSendData) {
    deliver(error, link_.valueText(*characteristic));
    contexts_.detach(characteristic, context);
  }
  cmdType = type;
}

void Dispatcher::didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error) {
  if (!characteristic || cmdType == KWTCmdTypeNone) return;
  const DeliveryScope scope(gate);
  const auto context = contexts_.find(characteristic);
  const auto text = link_.valueText(*characteristic);
  if (const auto receiver = stream.current()) {
    callHost(log_, receiver->callback, error, text);
  } else {
    deliver(error, text);
  }
  contexts_.detach(characteristic, context);
}

Dispatcher::Delivery Dispatcher::deliver(const MaybeError& error, const std::optional<std::string>& reply) {
  return complete(pending.current(), error, reply);
}

Dispatcher::Delivery Dispatcher::complete(const std::shared_ptr<CallbackSlot::Entry>& command,
                                          const MaybeError& error, const std::optional<std::string>& reply) {
  if (!command) return Delivery::nothingPending;
  if (!command->claim()) return Delivery::byAnother;
  const DeliveryScope untilCleared(gate);
  {
    const DeliveryScope scope(gate, &pending, command->generation);
    callHost(log_, command->callback, error, reply);
  }
  pending.clearUpTo(command->generation);
  return Delivery::completed;
}

}  // namespace kwtsdk::internal
