#include "platform/threads/thread_queue.h"

namespace kwtsdk::internal {

ThreadQueue::ThreadQueue() : state_(std::make_shared<State>()) {}

ThreadQueue::~ThreadQueue() {
  {
    std::deque<std::function<void()>> dropped;  // destroyed after the lock: it may hold anything
    const std::lock_guard lock(state_->mutex);
    state_->closed = true;
    dropped.swap(state_->work);
  }
  state_->ready.notify_one();
  if (!thread_.joinable()) return;
  if (thread_.get_id() == std::this_thread::get_id()) {
    thread_.detach();
  } else {
    thread_.join();
  }
}

void ThreadQueue::async(std::function<void()> work) {
  {
    const std::lock_guard lock(state_->mutex);
    // First: where no thread can be had, the work must not stay behind for a later one.
    if (!thread_.joinable()) thread_ = std::thread([state = state_] { drain(state); });
    state_->work.push_back(std::move(work));
  }
  state_->ready.notify_one();
}

void ThreadQueue::drain(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  while (true) {
    state->ready.wait(lock, [&] { return state->closed || !state->work.empty(); });
    if (state->closed) return;
    std::function<void()> work = std::move(state->work.front());
    state->work.pop_front();
    lock.unlock();
    work();
    work = nullptr;  // outside the lock: this may destroy the queue itself
    lock.lock();
  }
}

}  // namespace kwtsdk::internal
