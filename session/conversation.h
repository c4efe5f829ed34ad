#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include <kwtsdk/session/session.h>

#include "session/connection.h"
#include "session/exchange.h"
#include "session/operation_state.h"

namespace kwtsdk::session::detail {

/// Of an operation that was cancelled, closed or timed out.
const char* interruptionText(Errc reason);
inline Failure interruptionFailure(Errc reason) { return {reason, interruptionText(reason)}; }

/// Who takes what no exchange awaits of the recorder's own channel, such as a download its packets.
class Listener {
 public:
  virtual ~Listener() = default;

  /// False: it is nothing of its.
  virtual bool take(const Sign& sign) = 0;
};

/// What the worker has to do with the recorder, in straight lines: exchanges, waits, and the link behind
/// them. Every wait ends by what is waited for, a lost link, silence, the operation's limits, cancelling or
/// closing. The worker's thread alone.
class Conversation {
 public:
  Conversation(std::shared_ptr<Connection> connection, std::shared_ptr<Inbox> inbox,
               std::shared_ptr<Scheduler> scheduler, std::function<void(Event)> onEvent);

  /// What follows is for this operation.
  void begin(const std::shared_ptr<OperationState>& operation, const Limits& limits);

  /// Nothing of it is used any more.
  void leaveOperation();

  OperationState& operation() { return *operation_; }
  Connection& connection() { return *connection_; }
  Duration now() const { return scheduler_->now(); }
  Duration silence() const { return silence_; }
  void publish(Event event) { onEvent_(std::move(event)); }

  /// Why the operation has to end, if it has.
  MaybeFailure ended();

  /// Makes the link unless it is there; makes it anew after an exchange whose answer stayed away.
  MaybeFailure ready();

  /// How many links there have been.
  std::uint64_t linkNumber() const { return linkNumber_; }

  /// Whether it is worth another try, and may be repeated: it uses one of those that the limits allow, and
  /// the link is made anew.
  bool mayRetry(const Failure& failure);

  /// One of those tries for something that the link is not to blame for.
  bool useRetry();

  /// Does it with a link, over as many links as the limits allow.
  template <class Body>
  auto persist(const Body& body) -> decltype(body()) {
    for (;;) {
      if (const auto failure = ready()) {
        if (!mayRetry(*failure)) return *failure;
      } else if (auto result = body(); result || !mayRetry(result.error())) {
        return result;
      }
    }
  }

  /// Writes the frame and gives the answer, which has to come within `longest` of the write if that is given.
  /// Without it the link is made anew before the next exchange, so that a late answer becomes no other's.
  Result<Bytes> exchange(const Request& request, std::optional<Duration> longest = std::nullopt);

  /// Whether the last exchange came as far as its write.
  bool wasSent() const { return wasSent_; }

  /// What an operation that is broken off may have done.
  Effect possibleEffect() const { return hasWritten_ ? Effect::unknown : Effect::none; }

  /// The same for an answer that nothing else could be taken for, if it came late.
  Result<Bytes> exchangeLeniently(const Request& request, Duration longest);

  /// When a question that is asked now counts as one without an answer.
  Duration answerDue(Duration silence) const;

  // In parts: the exchange has to outlive what stands between these.
  MaybeFailure send(Exchange& exchange);
  void forget(Exchange& exchange);

  /// Another characteristic than the three that every link is subscribed to.
  MaybeFailure listenTo(const std::string& uuid);

  /// Waits until it is so, or until `wakeUp`. A lost link ends it, and so does silence since the last sign or
  /// write. `enough`: how many packets of a download are worth a look.
  MaybeFailure waitUntil(const std::function<bool()>& isSo, std::size_t enough = 1,
                         std::optional<Duration> wakeUp = std::nullopt);

  /// Hands on what has come, without waiting.
  void look();

  /// The recorder's moment between two frames, or longer. Ends early when the operation has to.
  MaybeFailure pause(Duration time = std::chrono::milliseconds(3));

  /// Ends the link; the next one who needs it makes it.
  void endLink();

  /// An answer may come that nobody waits for any more.
  void distrustLink() { isDistrusted_ = true; }
  bool isLinkDistrusted() const { return isDistrusted_; }
  bool isLinkLost() const { return !connection_->isOpen(); }

  /// How much of what the link told there was no memory for.
  std::uint64_t missedSigns() const { return inbox_->missed(); }

  void setListener(Listener* listener) { listener_ = listener; }

  /// For so long only a lost link and silence end a wait, but not for long after the operation's time.
  void shield(Duration time);
  void endShield() { operation_->shieldUntil(Duration::min()); }

 private:
  void handOn(const Sign& sign);
  void noteBattery(const Sign& sign);
  bool offer(const Sign& sign);
  std::size_t worthALook(std::size_t enough) const;
  Duration silentAt() const;
  Duration endDue() const;
  Duration nextMoment(std::optional<Duration> wakeUp) const;

  const std::shared_ptr<Connection> connection_;
  const std::shared_ptr<Inbox> inbox_;
  const std::shared_ptr<Scheduler> scheduler_;
  const std::function<void(Event)> onEvent_;

  std::shared_ptr<OperationState> operation_;
  Duration silence_{0};
  unsigned retries_ = 0, failedOpenings_ = 0;
  bool hadLink_ = false, isDistrusted_ = false, wasSent_ = false, hasWritten_ = false;
  std::uint64_t linkNumber_ = 0;

  std::vector<Exchange*> exchanges_;
  Listener* listener_ = nullptr;
  const Characteristic* streaming_ = nullptr;  // whose notifications are for the listener
  std::map<const Characteristic*, std::uint64_t> written_, acknowledged_;
  std::map<const Characteristic*, Bytes> last_;  // that was notified
};

}  // namespace kwtsdk::session::detail
