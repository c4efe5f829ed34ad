#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::internal {

/// A serial queue on a thread of its own, started by the first work.
class ThreadQueue : public SerialQueue {
 public:
  ThreadQueue();
  ~ThreadQueue() override;
  void async(std::function<void()> work) override;

 private:
  // Shared with the thread, which may outlive the queue when its own work destroys it.
  struct State {
    std::mutex mutex;
    std::condition_variable ready;
    std::deque<std::function<void()>> work;
    bool closed = false;
  };
  static void drain(const std::shared_ptr<State>& state);

  std::shared_ptr<State> state_;
  std::thread thread_;  // guarded by state_->mutex
};

}  // namespace kwtsdk::internal
