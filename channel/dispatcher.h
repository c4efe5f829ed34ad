#pragma once

#include <atomic>
#include <memory>
#include <optional>

#include "channel/command.h"
#include "channel/context_table.h"
#include "channel/gate.h"
#include "channel/peripheral_binding.h"
#include "platform/posix/host_call.h"

namespace kwtsdk::internal {

/// Writes one command at a time and routes acknowledgements and notifications: to the receiver of packets
/// while there is one, otherwise to the pending command.
class Dispatcher {
 public:
  Dispatcher(Gate& gate, PeripheralBinding& binding, Logger log)
      : gate_(gate), binding_(binding), log_(std::move(log)) {}

  // The pending command, which is what completionBlock shows.
  using SharedCommand = std::shared_ptr<Command>;
  SharedCommand pending() const { return pending_.get(); }
  bool busy() const { return pending() != nullptr; }

  /// Replaces whatever is pending. What is replaced is not given up: the host may have wrapped it.
  void store(SharedCommand command) { pending_.set(std::move(command)); }

  /// Nothing is pending any more. What was, is handed over, to be given up.
  SharedCommand take() { return pending_.exchange(nullptr); }
  void giveUp(const SharedCommand& removed);

  /// Both; the second only if it is this one.
  void clear() { giveUp(take()); }
  void clear(const SharedCommand& command);

  /// Stores and writes a command, under the gate. An error: it was not, and has to be refused once the gate
  /// is left.
  std::optional<Error> write(const SharedCommand& command);

  /// Reports the error to the command, which stood behind `inItsWay`.
  void refuse(const SharedCommand& command, const MaybeError& error, const SharedCommand& inItsWay);

  // The host's events, on its Bluetooth thread. They take no lock that another thread may hold while waiting.
  void didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);
  void didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);

  enum class Delivery { nothingPending, completed, byAnother };

  /// Calls the command, unless it has been called, and releases it. Without a word on that, it is as much a
  /// notification as the command inside which a host's wrapper calls it.
  Delivery complete(const SharedCommand& command, const MaybeError& error, const Reply& reply,
                    std::optional<bool> isNotification = std::nullopt);

  /// What writeDataBlock shows.
  SharedField<std::shared_ptr<const ReplyHandler>> receiver;
  std::atomic<std::int64_t> cmdType{KWTCmdTypeNone};

 private:
  struct Call;

  void call(const SharedCommand& command, const MaybeError& error, const Reply& reply,
            std::optional<bool> isNotification, const SharedCommand& inItsWay);
  void letGo(const SharedCommand& command);

  Gate& gate_;
  PeripheralBinding& binding_;
  const Logger log_;
  ContextTable contexts_;
  SharedField<SharedCommand> pending_;
};

}  // namespace kwtsdk::internal
