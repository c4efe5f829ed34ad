#include "channel/send_gate.h"

#include <utility>

namespace kwtsdk::internal {

void SendGate::whenFree(std::function<void()> cleanUp) {
  {
    const std::lock_guard lock(mutex_);
    leftBehind_.push_back(std::move(cleanUp));
  }
  runLeftBehind();
}

void SendGate::runLeftBehind() {
  // Looked at again after each unlock: who failed to get the lock meanwhile relies on its holder to do so.
  while (anyLeftBehind() && lock_->try_lock()) {
    while (const auto cleanUp = takeOne()) cleanUp();
    lock_->unlock();
  }
}

std::function<void()> SendGate::takeOne() {
  const std::lock_guard lock(mutex_);
  if (leftBehind_.empty()) return nullptr;
  auto cleanUp = std::move(leftBehind_.front());
  leftBehind_.pop_front();
  return cleanUp;
}

bool SendGate::anyLeftBehind() const {
  const std::lock_guard lock(mutex_);
  return !leftBehind_.empty();
}

}  // namespace kwtsdk::internal
