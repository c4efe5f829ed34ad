#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/export.h>
#include <kwtsdk/peripheral.h>

namespace kwtsdk::gatt {

struct Operation {
  enum class Kind { write, writeWithoutResponse, subscribe, unsubscribe };
  Kind kind;
  std::shared_ptr<Characteristic> target;
  Bytes value = {};  // of writes
};

/// The operations of one connection, in the order asked, one at a time: for stacks that refuse a second one
/// while one is under way, or let a write overtake the subscription that its answer needs. A write with
/// response after a refused subscription is not sent and fails with the subscription's error, since its
/// answer would never arrive. One thread; nothing blocks.
class KWTSDK_EXPORT OperationQueue {
 public:
  using Target = std::shared_ptr<Characteristic>;

  /// `send` starts an operation; finished() has to follow, inside it or later. `report` tells the outcome of
  /// each write with response. Neither must throw.
  OperationQueue(std::function<void(const Operation&)> send,
                 std::function<void(const Target&, const MaybeError&)> report);
  ~OperationQueue();
  OperationQueue(const OperationQueue&) = delete;
  OperationQueue& operator=(const OperationQueue&) = delete;

  void add(Operation operation);

  /// The stack's answer to the operation under way.
  void finished(const MaybeError& error);

  /// The connection is lost: none is started any more, and the writes with response that are left fail with
  /// this.
  void end(const Error& error);

  /// From the moment at which the stack was asked: what it tells from then on may be a notification.
  bool isSubscribed(const Target& target) const;

 private:
  void startNext();
  bool begin(const Operation& operation);
  void noteSubscription(const Target& target, const MaybeError& error);

  const std::function<void(const Operation&)> send_;
  const std::function<void(const Target&, const MaybeError&)> report_;
  std::deque<Operation> waiting_;
  std::optional<Operation> running_;
  std::set<Target> subscribed_;
  Target refused_;      // the last subscription that was refused: the next write
  MaybeError refusal_;  // fails with this
  bool ended_ = false;
  bool starting_ = false;
};

}  // namespace kwtsdk::gatt
