#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/cmd_type.h>

#include "channel/peripheral_binding.h"
#include "channel/wait.h"

namespace kwtsdk::internal {

using Reply = std::optional<std::string>;  // lower-case hex text, or none

class Command;

/// How a command ended, as its handler learns it.
struct Answer {
  const MaybeError& error;
  const Reply& reply;
  bool isNotification;                   // false: it was refused, or its write failed
  const std::function<void()>& cleanUp;  // does now what else is done when the handler has returned
  Command& command;
};

/// What one download or live recording knows of the packets that it asked for; they come until it ends.
struct Stream {
  explicit Stream(const char* notifyOn) : subscription(std::make_shared<Subscription>(notifyOn)) {}
  virtual ~Stream() = default;
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  const std::shared_ptr<Subscription> subscription;
};

/// One command, from what a subsystem says of it to the end of its clean-up. It is claimed by the one who
/// calls its handler, called once, and released after that: its subscription ends, it is no longer the
/// pending one, and the handler is destroyed, which ends the wait of whoever waits for it. Dropped, it is
/// called only by a host that has read it before; otherwise its handler goes with it.
class Command {
 public:
  struct Plan {
    std::int64_t type = KWTCmdTypeNone;
    std::string writeTo{};  // UUIDs
    const char* notifyOn = nullptr;
    Bytes frame{};
    std::function<void(const Answer&)> onAnswer{};

    /// Told of 1002 before anything is done for the command. Without it the dispatcher's own 1002 is an
    /// answer like any other, and comes after the subscription.
    std::function<void(const Error&)> onBusy{};

    /// Before the subscription, when nothing else can come in between; false: busy after all.
    std::function<bool()> prepare{};
    const char* logLine = nullptr;  // between subscription and write

    /// Its clean-up also clears the command that was in its way.
    bool clearsPending = false;
    std::shared_ptr<Stream> stream{};           // whose packets it asks for, and whose the subscription is
    std::weak_ptr<const Waiting> waiting{};     // not sent once that is over
    std::shared_ptr<void> untilAcknowledged{};  // let go of when its write is acknowledged, or it is called
  };

  explicit Command(Plan described);

  /// What a host stored, or sends: its block is handed back to it as it is.
  Command(std::int64_t type, std::string writeTo, Bytes frame, ReplyHandler block);

  /// True for the first caller only: who calls the handler.
  bool claim() { return !claimed_.exchange(true); }
  bool claimed() const { return claimed_; }

  /// What completes it; empty: nothing does, and it is never pending.
  bool hasHandler() const { return block != nullptr || plan.onAnswer != nullptr; }

  /// Nobody is known to want it any more. Any thread.
  void giveUp() {
    if (subscription) subscription->counts = false;
  }

  // For whoever claimed it.
  void call(const Answer& answer);
  void keepNotifications() { subscription->ended = true; }

  /// What it holds for others, to be destroyed where that may be done.
  Plan takeHandlers();

  Plan plan;
  const ReplyHandler block;
  const std::shared_ptr<Subscription> subscription;  // null where it has none of its own

 private:
  std::atomic<bool> claimed_{false};
};

}  // namespace kwtsdk::internal
