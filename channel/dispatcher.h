#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "channel/callback_slot.h"
#include "channel/context_table.h"
#include "channel/link.h"
#include "channel/logger.h"
#include "channel/send_gate.h"

namespace kwtsdk::internal {

/// Writes one command at a time and routes acknowledgements and notifications: to the stream receiver while
/// there is one, otherwise to the pending command.
class Dispatcher {
 public:
  Dispatcher(Scheduler& scheduler, Link& link, Logger log)
      : gate(scheduler), link_(link), log_(std::move(log)) {}

  /// Any thread. Refusals reach `completion` inside the call, after the gate is released.
  void send(const Bytes& frame, const std::string& characteristic, std::int64_t type,
            ReplyHandler completion);

  /// The part of send that runs under the gate, for operations that subscribe under the same hold.
  struct Refusal {
    Error error;
    CallbackSlot::Generation generation = 0;  // newest command stored when this one was refused
  };
  std::optional<Refusal> sendHeld(const Bytes& frame, const std::string& characteristic, std::int64_t type,
                                  ReplyHandler completion);
  void reportRefusal(const Refusal& refusal, const ReplyHandler& completion);

  // The host's events, on its Bluetooth thread. They take no lock that another thread may hold while waiting.
  void didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);
  void didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);

  enum class Delivery { nothingPending, completed, byAnother };

  /// Completes the pending command, unless another thread is just doing so, and clears it.
  Delivery deliver(const MaybeError& error, const std::optional<std::string>& reply);

  /// The same for a given command, which may have left the slot meanwhile.
  Delivery complete(const std::shared_ptr<CallbackSlot::Entry>& command, const MaybeError& error,
                    const std::optional<std::string>& reply);

  SendGate gate;
  CallbackSlot pending;
  CallbackSlot stream;
  std::atomic<std::int64_t> cmdType{KWTCmdTypeNone};

 private:
  Link& link_;
  const Logger log_;
  ContextTable contexts_;
};

}  // namespace kwtsdk::internal
