#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>

#include <kwtsdk/error.h>

#include "platform/bluez/characteristic.h"

namespace kwtsdk::bluez {

struct GattOperation {
  enum class Kind { write, writeWithoutResponse, subscribe, unsubscribe };
  Kind kind;
  std::shared_ptr<BluezCharacteristic> target;
  Bytes value;  // of writes
};

/// The GATT operations of a connection, in the order asked, one at a time: BlueZ refuses a second one on the
/// same characteristic, and a write that overtakes its subscription loses the answer. One thread.
class GattQueue {
 public:
  using Target = std::shared_ptr<BluezCharacteristic>;

  /// `send` starts an operation, finished() has to follow. `report` tells the outcome of each write with
  /// response.
  GattQueue(std::function<void(const GattOperation&)> send,
            std::function<void(const Target&, const MaybeError&)> report)
      : send_(std::move(send)), report_(std::move(report)) {}

  void add(GattOperation operation);

  /// The operation under way has been answered.
  void finished(const MaybeError& error);

  /// None is started any more; those with a report fail with this error, or are dropped without one.
  void end(const MaybeError& error);

  /// From the moment at which BlueZ was asked: what it sends from then on may be a notification.
  bool isSubscribed(const Target& target) const { return subscribed_.contains(target); }

 private:
  void startNext();
  bool begin(const GattOperation& operation);
  void noteSubscription(const Target& target, const MaybeError& error);

  const std::function<void(const GattOperation&)> send_;
  const std::function<void(const Target&, const MaybeError&)> report_;
  std::deque<GattOperation> waiting_;
  std::optional<GattOperation> running_;
  std::set<Target> subscribed_;
  Target refused_;      // the last subscription that was refused: the next write
  MaybeError refusal_;  // fails with this
  bool ended_ = false;
};

}  // namespace kwtsdk::bluez
