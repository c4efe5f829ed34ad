#include "channel/command_channel.h"

#include <utility>

#include "codec/error_codes.h"
#include "platform/posix/platform_defaults.h"

namespace kwtsdk::internal {

CommandChannel::CommandChannel(Platform given)
    : platform(withDefaults(std::move(given))),
      log(platform.log),
      gate(*platform.scheduler),
      binding(gate, log),
      dispatcher(gate, binding, log),
      watchdog(*platform.scheduler, gate, dispatcher, log),
      queues(*platform.scheduler, log) {
  noResourcesError();
}

// ---- Commands ----

std::shared_ptr<Command> CommandChannel::send(Command::Plan plan) {
  const auto self = owner();
  const auto onBusy = std::exchange(plan.onBusy, nullptr);
  if (onBusy && refusedAsBusy(onBusy)) return nullptr;
  return send(std::make_shared<Command>(std::move(plan)), onBusy);
}

void CommandChannel::sendHostCommand(std::int64_t type, const std::string& writeTo, const Bytes& frame,
                                     ReplyHandler block) {
  const auto self = owner();
  send(std::make_shared<Command>(type, writeTo, frame, std::move(block)), nullptr);
}

std::shared_ptr<Command> CommandChannel::send(const std::shared_ptr<Command>& command,
                                              const std::function<void(const Error&)>& onBusy) {
  Outcome outcome;
  const auto pending = dispatcher.pending();
  if (pending && !onBusy && command->plan.notifyOn == nullptr) {
    // Before the gate: what is sent inside a completion must not wait for the gate's holder.
    outcome = {Outcome::Kind::failed, dispatcherBusyError(command->plan.type), pending};
  } else {
    const Gate::Hold hold(gate);
    const bool isDecided = guardedCall(log, "Sending a command", [&] {
      gate.assertHeld();
      outcome = trySend(command, onBusy != nullptr);
    });
    if (!isDecided) outcome = {Outcome::Kind::outOfMemory, {}, dispatcher.pending()};
  }
  switch (outcome.kind) {
    case Outcome::Kind::sent:
      return command;
    case Outcome::Kind::busy:
      reportBusy(onBusy);
      break;
    case Outcome::Kind::failed:
      dispatcher.refuse(command, outcome.error, outcome.inItsWay);
      break;
    case Outcome::Kind::outOfMemory:
      dispatcher.clear(command);
      if (command->plan.stream)
        endStream(command->plan.stream);  // which may have begun, without its watchdog
      dispatcher.refuse(command, noResourcesError(), outcome.inItsWay);
      break;
    case Outcome::Kind::unwanted:
      break;
  }
  return nullptr;
}

CommandChannel::Outcome CommandChannel::trySend(const std::shared_ptr<Command>& command, bool isOperation) {
  using Kind = Outcome::Kind;
  Command::Plan& plan = command->plan;
  const auto unwanted = [waiting = plan.waiting.lock()] { return waiting && waiting->over(); };
  if (unwanted()) return {Kind::unwanted, {}, {}};
  // Another thread may have passed its own busy check together with this one: the command stored first wins,
  // and the loser must not touch the winner's subscription.
  if (isOperation && dispatcher.busy()) return {Kind::busy, {}, {}};
  if (plan.prepare && !plan.prepare()) {
    return {Kind::failed, dispatcherBusyError(plan.type), dispatcher.pending()};
  }
  if (plan.notifyOn != nullptr) {
    binding.subscribe(plan.stream ? plan.stream->subscription : command->subscription);
    if (unwanted()) {  // switching notifications on took longer than the wait
      binding.unsubscribe(command->subscription);
      return {Kind::unwanted, {}, {}};
    }
  }
  if (plan.logLine != nullptr) log.info(plan.logLine);
  auto error = dispatcher.write(command);
  if (error) return {Kind::failed, std::move(error), dispatcher.pending()};
  if (unwanted()) dispatcher.clear(command);  // the form that waited has cleared what was pending before
  return {Kind::sent, {}, {}};
}

bool CommandChannel::refusedAsBusy(const std::function<void(const Error&)>& onBusy) const {
  if (!dispatcher.busy()) return false;
  const auto self = owner();  // the callback may release the host's last reference to the facade
  reportBusy(onBusy);
  return true;
}

void CommandChannel::reportBusy(const std::function<void(const Error&)>& onBusy) const {
  const Error error = busyError();
  log.error("%@", error);
  onBusy(error);
}

void CommandChannel::giveUp(const std::shared_ptr<Command>& command) {
  const auto pending = dispatcher.pending();
  if (command && !command->claimed()) dispatcher.clear(pending);
}

ReplyHandler CommandChannel::completionBlock() {
  const auto command = dispatcher.pending();
  if (!command || command->block) return command ? command->block : ReplyHandler();
  return [this, weak = owner_, command](const MaybeError& error, const Reply& reply) {
    if (const auto alive = weak.lock()) dispatcher.complete(command, error, reply);
  };
}

void CommandChannel::setCompletionBlock(ReplyHandler block) {
  const auto self = owner();  // what goes may hold the host's last reference to the facade
  if (block) {
    dispatcher.store(std::make_shared<Command>(KWTCmdTypeNone, "", Bytes(), std::move(block)));
  } else {
    dispatcher.clear();
  }
}

// ---- Packets ----

void CommandChannel::beginStream(const std::shared_ptr<Stream>& stream, ReplyHandler receiver) {
  const Gate::Hold hold(gate);
  if (const auto former = stream_.lock()) former->subscription->counts = false;
  stream_ = stream;
  gate.letGo(dispatcher.receiver.exchange(std::make_shared<const ReplyHandler>(std::move(receiver))));
}

bool CommandChannel::isCurrent(const std::shared_ptr<Stream>& stream) {
  const Gate::Hold hold(gate);
  return stream_.lock() == stream;
}

void CommandChannel::closeStream(const std::shared_ptr<Stream>& stream) {
  const Gate::Hold hold(gate);
  if (stream_.lock() != stream) return;
  gate.letGo(dispatcher.receiver.exchange(nullptr));
  binding.unsubscribe(stream->subscription);
}

void CommandChannel::endStream(const std::shared_ptr<Stream>& stream) {
  const Gate::Hold hold(gate);
  const auto current = stream_.lock();
  if (stream && current != stream) return;
  if (current) current->subscription->counts = false;
  stream_.reset();
  gate.letGo(dispatcher.receiver.exchange(nullptr));
}

void CommandChannel::transaction(const std::function<void()>& work) {
  const Gate::Hold hold(gate);
  work();
}

}  // namespace kwtsdk::internal
