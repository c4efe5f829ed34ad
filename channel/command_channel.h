#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <kwtsdk/platform.h>

#include "channel/dispatcher.h"
#include "channel/host_call.h"
#include "channel/link.h"
#include "channel/logger.h"
#include "channel/watchdog.h"
#include "channel/work_queues.h"

namespace kwtsdk::internal {

/// Between two commands of a chain: devices need a moment after a reply.
inline constexpr Duration kPause = std::chrono::milliseconds(3);

/// One device operation that a public completion form sends.
struct Request {
  const char* writeTo;
  const char* notifyOn;
  std::int64_t cmdType;
  Bytes frame;
  ReplyHandler onReply;                      // answer, failed write, or 1001
  std::function<void(const Error&)> onBusy;  // 1002: another command is pending
  bool freesSlot = false;                    // whether the reply handler itself clears the pending command
};

/// What the subsystems share: the link, the dispatcher and its slots, the watchdog and the work queues.
/// Callbacks that are stored anywhere hold owner() weakly; work on a queue holds it strongly.
class CommandChannel {
 public:
  explicit CommandChannel(Platform platform);

  /// `owner` is the facade, whose lifetime is this object's.
  void bindOwner(std::weak_ptr<void> owner) { owner_ = std::move(owner); }
  std::shared_ptr<void> owner() const { return owner_.lock(); }
  const std::weak_ptr<void>& weakOwner() const { return owner_; }

  /// The life of one command: busy check, subscription, sending, and after the reply the end of the
  /// subscription.
  void request(const Request& request);

  /// Reports 1002 the way every operation does: logged, then handed to `onBusy`. False when nothing is
  /// pending.
  bool refusedAsBusy(const std::function<void(const Error&)>& onBusy) const;

  /// Subscribes and sends, without an end of the subscription. Under the gate; the caller reports a refusal
  /// after it.
  std::optional<Dispatcher::Refusal> subscribeAndSend(const Request& request);

  /// Subscribes to the characteristic and sends on it, whatever is pending; `handlerFor` gets the number of
  /// the subscription, which the handler has to end. A refusal reaches the handler inside the call.
  void exchange(const char* characteristic, std::int64_t cmdType, const Bytes& frame,
                const std::function<ReplyHandler(std::uint64_t subscription)>& handlerFor);

  struct Attempt {
    ReplyHandler handler;  // is told of the refusal
    std::optional<Dispatcher::Refusal> refusal;
  };
  /// Runs `send`, which subscribes and sends, under the gate, unless another command is pending.
  void attempt(const std::function<void(const Error&)>& onBusy, const std::function<Attempt()>& send);

  /// Switches notifications on; the number tells this subscription from later ones. Under the gate.
  using Subscription = std::uint64_t;
  Subscription subscribe(const char* notifyOn);

  /// Switches them off unless a newer command subscribed to the same. Any thread, never waits.
  void endSubscription(const char* notifyOn, Subscription subscription);

  /// Reports an error without a value to the completion.
  template <class T>
  std::function<void(const Error&)> errorTo(const ValueCompletion<T>& completion) const {
    return [log = log, completion](const Error& error) { callHost(log, completion, error, std::nullopt); };
  }

  const Platform platform;
  const Logger log;
  Link link;
  Dispatcher dispatcher;
  Watchdog watchdog;
  WorkQueues queues;

 private:
  ReplyHandler withCleanUp(const Request& request, Subscription subscription);
  void refuseAsBusy(const std::function<void(const Error&)>& onBusy) const;

  std::weak_ptr<void> owner_;
  // Under the gate: the number of the command that subscribed last, per characteristic. Only that one's reply
  // switches the notifications off.
  std::map<std::string, Subscription> lastSubscription_;
  Subscription subscriptions_ = 0;
};

}  // namespace kwtsdk::internal
