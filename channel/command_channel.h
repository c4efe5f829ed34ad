#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <kwtsdk/platform.h>

#include "channel/command.h"
#include "channel/dispatcher.h"
#include "channel/gate.h"
#include "channel/peripheral_binding.h"
#include "channel/wait.h"
#include "channel/watchdog.h"
#include "channel/work_queues.h"
#include "platform/posix/host_call.h"

namespace kwtsdk::internal {

/// Between two commands of a chain: devices need a moment after a reply.
inline constexpr Duration kPause = std::chrono::milliseconds(3);

/// How long a blocking form waits for an answer.
inline constexpr Duration kReplyTimeout = std::chrono::seconds(5);

/// What the subsystems share: commands, packets, the watchdog and the work queues.
/// Callbacks that are stored anywhere hold owner() weakly; work on a queue holds it strongly.
class CommandChannel {
 public:
  explicit CommandChannel(Platform platform);

  /// `owner` is the facade, whose lifetime is this object's.
  void bindOwner(std::weak_ptr<void> owner) { owner_ = std::move(owner); }
  std::shared_ptr<void> owner() const { return owner_.lock(); }
  const std::weak_ptr<void>& weakOwner() const { return owner_; }

  // ---- Commands ----

  /// Sends a command. Whatever keeps it from being sent reaches it inside the call; null then.
  std::shared_ptr<Command> send(Command::Plan plan);

  /// The blocking form of an operation: sends its command on a queue and waits for the value that the plan's
  /// handler gives. When the wait ends, by value or by time-out, the pending command is cleared whatever it
  /// is, so that a silent device does not leave the facade busy.
  template <class T>
  T ask(const QueueLabel& queue, Duration timeout, T fallback,
        std::function<Command::Plan(std::function<void(T)> finish)> planFor) {
    const auto self = owner();
    T value = fallback;
    guardedCall(log, queue.label, [&] {
      Wait<T> wait(*platform.scheduler, queue.label, std::move(fallback));
      const bool queued = queues.async(queue, [this, self, promise = wait.promise(), waiting = wait.waiting(),
                                               planFor = std::move(planFor)] {
        Command::Plan plan = planFor([promise](T given) { promise->set(std::move(given)); });
        plan.waiting = waiting;
        send(std::move(plan));
      });
      value = wait.wait(queued ? timeout : Duration{0});
    });
    dispatcher.clear();
    return value;
  }

  /// The same for an operation whose completion gets the value or none.
  template <class T>
  std::optional<T> askFor(const QueueLabel& queue, Duration timeout,
                          std::function<Command::Plan(ValueCompletion<T>)> planFor) {
    using Value = std::optional<T>;
    return ask<Value>(queue, timeout, std::nullopt, [planFor = std::move(planFor)](auto finish) {
      return planFor([finish](const MaybeError&, const Value& value) { finish(value); });
    });
  }

  /// Sends what a host itself composed; its block is told of everything, 1002 included.
  void sendHostCommand(std::int64_t type, const std::string& writeTo, const Bytes& frame, ReplyHandler block);

  /// Reports 1002 the way every operation does: logged, then handed to `onBusy`. False when nothing is
  /// pending.
  bool refusedAsBusy(const std::function<void(const Error&)>& onBusy) const;

  /// Clears what is pending unless the command has been answered: it, or what a host wrapped it into.
  void giveUp(const std::shared_ptr<Command>& command);

  /// What completionBlock shows of the pending command.
  ReplyHandler completionBlock();
  void setCompletionBlock(ReplyHandler block);

  /// Reports an error without a value to the completion.
  template <class T>
  std::function<void(const Error&)> errorTo(const ValueCompletion<T>& completion) const {
    return [log = log, completion](const Error& error) { callHost(log, completion, error, std::nullopt); };
  }

  // ---- Packets. The stream begun last is the current one; those of others, still queued, are stale.
  // Not for the thread that delivers events: they wait for the gate. ----

  /// `receiver` gets every notification from now on.
  void beginStream(const std::shared_ptr<Stream>& stream, ReplyHandler receiver);
  bool isCurrent(const std::shared_ptr<Stream>& stream);

  /// Packets are no longer received, whoever stored the receiver, unless another stream has begun.
  /// Unsubscribes. Those still queued stay the current stream's.
  void closeStream(const std::shared_ptr<Stream>& stream);

  /// The stream, or for null the current one, is over: packets are no longer received, and those still queued
  /// are stale.
  void endStream(const std::shared_ptr<Stream>& stream);

  /// Does work between which and any command nothing comes.
  void transaction(const std::function<void()>& work);

  const Platform platform;
  const Logger log;
  Gate gate;
  PeripheralBinding binding;
  Dispatcher dispatcher;
  Watchdog watchdog;
  WorkQueues queues;

 private:
  struct Outcome {
    enum class Kind { sent, busy, failed, unwanted, outOfMemory } kind = Kind::sent;
    MaybeError error;
    std::shared_ptr<Command> inItsWay;
  };
  std::shared_ptr<Command> send(const std::shared_ptr<Command>& command,
                                const std::function<void(const Error&)>& onBusy);
  Outcome trySend(const std::shared_ptr<Command>& command, bool isOperation) KWT_REQUIRES(gate);
  void reportBusy(const std::function<void(const Error&)>& onBusy) const;

  std::weak_ptr<void> owner_;
  std::weak_ptr<Stream> stream_ KWT_GUARDED_BY(gate);  // lives in its receiver, its command and its packets
};

}  // namespace kwtsdk::internal
