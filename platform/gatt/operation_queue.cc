#include <kwtsdk/gatt/operation_queue.h>

#include <utility>

namespace kwtsdk::gatt {

OperationQueue::OperationQueue(std::function<void(const Operation&)> send,
                               std::function<void(const Target&, const MaybeError&)> report)
    : send_(std::move(send)), report_(std::move(report)) {}

OperationQueue::~OperationQueue() = default;

bool OperationQueue::isSubscribed(const Target& target) const { return subscribed_.contains(target); }

void OperationQueue::add(Operation operation) {
  if (ended_) return;
  waiting_.push_back(std::move(operation));
  if (!running_) startNext();
}

/// One that is finished inside `send` is followed by the next here, however many there are.
void OperationQueue::startNext() {
  if (std::exchange(starting_, true)) return;
  while (!running_ && !waiting_.empty()) {
    Operation next = std::move(waiting_.front());
    waiting_.pop_front();
    if (begin(next)) running_ = Operation{next.kind, next.target};  // takes no memory
    if (running_) send_(next);
  }
  starting_ = false;
}

/// False: it has failed already.
bool OperationQueue::begin(const Operation& operation) {
  switch (operation.kind) {
    case Operation::Kind::subscribe:
      subscribed_.insert(operation.target);
      break;
    case Operation::Kind::unsubscribe:
      subscribed_.erase(operation.target);
      noteSubscription(operation.target, std::nullopt);
      break;
    case Operation::Kind::write:
      if (const auto refusal = std::exchange(refusal_, std::nullopt)) {
        report_(operation.target, refusal);
        return false;
      }
      break;
    case Operation::Kind::writeWithoutResponse:
      break;
  }
  return true;
}

void OperationQueue::finished(const MaybeError& error) {
  if (!running_) return;
  const Operation done = *std::exchange(running_, std::nullopt);
  if (done.kind == Operation::Kind::subscribe) {
    noteSubscription(done.target, error);
    if (error) subscribed_.erase(done.target);
  }
  if (done.kind == Operation::Kind::write) report_(done.target, error);
  startNext();
}

/// Another characteristic's good subscription does not make up for a refused one.
void OperationQueue::noteSubscription(const Target& target, const MaybeError& error) {
  if (!error && refused_ != target) return;
  refused_ = target;
  refusal_ = error;
}

void OperationQueue::end(const Error& error) {
  ended_ = true;
  const auto fail = [&](const Operation& operation) {
    if (operation.kind == Operation::Kind::write) report_(operation.target, error);
  };
  if (running_) fail(*std::exchange(running_, std::nullopt));
  while (!waiting_.empty()) {
    const Operation next = std::move(waiting_.front());
    waiting_.pop_front();
    fail(next);
  }
}

}  // namespace kwtsdk::gatt
