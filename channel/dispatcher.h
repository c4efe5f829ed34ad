#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <vector>

#include "channel/command.h"
#include "channel/context_table.h"
#include "channel/gate.h"
#include "channel/host_call.h"
#include "channel/peripheral_binding.h"

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

  /// Replaces whatever is pending. What is replaced is not dropped: the host may have wrapped it.
  void store(SharedCommand command) { pending_.set(std::move(command)); }

  /// Drops whatever is pending.
  void clear();

  /// The same if it is this one.
  void clear(const SharedCommand& command);

  /// Stores and writes a command, under the gate. An error: it was not, and has to be refused once the gate
  /// is left.
  std::optional<Error> write(const SharedCommand& command);

  /// Reports the error to the command, which stood behind `inItsWay`.
  void refuse(const SharedCommand& command, const Error& error, const SharedCommand& inItsWay);

  // The host's events, on its Bluetooth thread. They take no lock that another thread may hold while waiting.
  void didWrite(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);
  void didUpdate(const std::shared_ptr<Characteristic>& characteristic, const MaybeError& error);

  enum class Delivery { nothingPending, completed, byAnother };

  /// Calls the command, unless another thread is just doing so, and releases it. A host that wrapped its
  /// handler calls it inside another command: it is then as much a notification as that one's.
  Delivery complete(const SharedCommand& command, const MaybeError& error, const Reply& reply,
                    std::optional<bool> isNotification = std::nullopt);

  /// What writeDataBlock shows.
  SharedField<std::shared_ptr<const ReplyHandler>> receiver;
  std::atomic<std::int64_t> cmdType{KWTCmdTypeNone};

 private:
  struct Call;

  void cleanUp(Command& command, const SharedCommand& inItsWay);
  void letGo(const std::vector<SharedCommand>& commands);

  Gate& gate_;
  PeripheralBinding& binding_;
  const Logger log_;
  ContextTable contexts_;
  SharedField<SharedCommand> pending_;
};

}  // namespace kwtsdk::internal
