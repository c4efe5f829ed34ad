#include "channel/command_channel.h"

#include <utility>

#include "channel/delivery_scope.h"
#include "codec/error_codes.h"
#include "platform/platform_defaults.h"

namespace kwtsdk::internal {

CommandChannel::CommandChannel(Platform given)
    : platform(withDefaults(std::move(given))),
      log(platform.log),
      link(log),
      dispatcher(*platform.scheduler, link, log),
      watchdog(*platform.scheduler, dispatcher, log),
      queues(*platform.scheduler, log) {}

bool CommandChannel::refusedAsBusy(const std::function<void(const Error&)>& onBusy) const {
  if (!dispatcher.pending.occupied()) return false;
  const auto self = owner();  // the callback may release the host's last reference to the facade
  refuseAsBusy(onBusy);
  return true;
}

void CommandChannel::refuseAsBusy(const std::function<void(const Error&)>& onBusy) const {
  const Error error = busyError();
  log.error("%@", description(error));
  onBusy(error);
}

void CommandChannel::attempt(const std::function<void(const Error&)>& onBusy,
                             const std::function<Attempt()>& send) {
  const auto self = owner();
  if (refusedAsBusy(onBusy)) return;
  std::optional<Attempt> made;
  {
    const SendGate::Hold hold(dispatcher.gate);
    // Another thread may have passed its own busy check together with this one: the command stored first
    // wins, and the loser must not touch the winner's subscription or slot.
    if (!dispatcher.pending.occupied()) made = send();
  }
  if (!made) return refuseAsBusy(onBusy);
  if (made->refusal) dispatcher.reportRefusal(*made->refusal, made->handler);
}

void CommandChannel::request(const Request& request) {
  attempt(request.onBusy, [&] {
    ReplyHandler handler = withCleanUp(request, subscribe(request.notifyOn));
    auto refusal = dispatcher.sendHeld(request.frame, request.writeTo, request.cmdType, handler);
    return Attempt{std::move(handler), std::move(refusal)};
  });
}

void CommandChannel::exchange(const char* characteristic, std::int64_t cmdType, const Bytes& frame,
                              const std::function<ReplyHandler(Subscription)>& handlerFor) {
  const auto self = owner();
  ReplyHandler handler;
  std::optional<Dispatcher::Refusal> refusal;
  {
    const SendGate::Hold hold(dispatcher.gate);
    handler = handlerFor(subscribe(characteristic));
    refusal = dispatcher.sendHeld(frame, characteristic, cmdType, handler);
  }
  if (refusal) dispatcher.reportRefusal(*refusal, handler);
}

std::optional<Dispatcher::Refusal> CommandChannel::subscribeAndSend(const Request& request) {
  subscribe(request.notifyOn);
  return dispatcher.sendHeld(request.frame, request.writeTo, request.cmdType, request.onReply);
}

CommandChannel::Subscription CommandChannel::subscribe(const char* notifyOn) {
  lastSubscription_[notifyOn] = ++subscriptions_;
  const Subscription own = subscriptions_;
  link.setNotify(true, notifyOn);
  return own;
}

void CommandChannel::endSubscription(const char* notifyOn, Subscription subscription) {
  dispatcher.gate.whenFree([this, notifyOn, subscription] {
    if (lastSubscription_[notifyOn] == subscription) link.setNotify(false, notifyOn);
  });
}

ReplyHandler CommandChannel::withCleanUp(const Request& request, Subscription subscription) {
  return
      [this, weak = owner_, onReply = request.onReply, notifyOn = request.notifyOn, frees = request.freesSlot,
       subscription](const MaybeError& error, const std::optional<std::string>& reply) {
        const auto alive = weak.lock();
        if (!alive) return;
        const CallbackSlot::Generation own = DeliveryScope::generationOf(dispatcher.pending);
        onReply(error, reply);
        endSubscription(notifyOn, subscription);
        if (frees) dispatcher.pending.clearUpTo(own);
      };
}

}  // namespace kwtsdk::internal
