#include "platform/bluez/gatt_queue.h"

#include <utility>

namespace kwtsdk::bluez {

void GattQueue::add(GattOperation operation) {
  if (ended_) return;
  waiting_.push_back(std::move(operation));
  if (!running_) startNext();
}

void GattQueue::startNext() {
  while (!running_ && !waiting_.empty()) {
    GattOperation next = std::move(waiting_.front());
    waiting_.pop_front();
    if (begin(next)) running_ = next;
    if (running_) send_(next);
  }
}

/// False: it has failed already.
bool GattQueue::begin(const GattOperation& operation) {
  switch (operation.kind) {
    case GattOperation::Kind::subscribe:
      subscribed_.insert(operation.target);
      break;
    case GattOperation::Kind::unsubscribe:
      subscribed_.erase(operation.target);
      noteSubscription(operation.target, std::nullopt);
      break;
    case GattOperation::Kind::write:
      if (const auto refusal = std::exchange(refusal_, std::nullopt)) {
        report_(operation.target, refusal);
        return false;
      }
      break;
    case GattOperation::Kind::writeWithoutResponse:
      break;
  }
  return true;
}

void GattQueue::finished(const MaybeError& error) {
  if (!running_) return;
  const GattOperation done = *std::exchange(running_, std::nullopt);
  if (done.kind == GattOperation::Kind::subscribe) {
    noteSubscription(done.target, error);
    if (error) subscribed_.erase(done.target);
  }
  if (done.kind == GattOperation::Kind::write) report_(done.target, error);
  startNext();
}

/// Another characteristic's good subscription does not make up for a refused one.
void GattQueue::noteSubscription(const Target& target, const MaybeError& error) {
  if (!error && refused_ != target) return;
  refused_ = target;
  refusal_ = error;
}

void GattQueue::end(const MaybeError& error) {
  ended_ = true;
  auto failed = std::exchange(waiting_, {});
  if (running_) failed.push_front(*std::exchange(running_, std::nullopt));
  for (const auto& operation : failed) {
    if (error && operation.kind == GattOperation::Kind::write) report_(operation.target, error);
  }
}

}  // namespace kwtsdk::bluez
