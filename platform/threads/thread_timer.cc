#include "platform/threads/thread_timer.h"

#include <algorithm>
#include <thread>

namespace kwtsdk::internal {

ThreadTimer::ThreadTimer(Duration first, Duration interval, std::function<void()> onFire)
    : state_(std::make_shared<State>()) {
  std::thread([state = state_, first, interval, fire = std::move(onFire)] {
    run(state, first, interval, fire);
  }).detach();
}

ThreadTimer::~ThreadTimer() { ThreadTimer::cancel(); }

void ThreadTimer::cancel() {
  {
    const std::lock_guard lock(state_->mutex);
    state_->cancelled = true;
  }
  state_->changed.notify_one();
}

void ThreadTimer::run(const std::shared_ptr<State>& state, Duration first, Duration interval,
                      const std::function<void()>& onFire) {
  auto due = std::chrono::steady_clock::now() + first;
  std::unique_lock lock(state->mutex);
  while (!state->changed.wait_until(lock, due, [&] { return state->cancelled; })) {
    lock.unlock();
    onFire();
    lock.lock();
    // Fires missed while the process stood still become one: a burst would find no data between two of them.
    due = std::max(due + interval, std::chrono::steady_clock::now());
  }
}

}  // namespace kwtsdk::internal
