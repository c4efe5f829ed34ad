#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::internal {

/// A repeating timer on a thread of its own, which ends by itself after the cancellation.
class ThreadTimer : public Timer {
 public:
  ThreadTimer(Duration first, Duration interval, std::function<void()> onFire);
  ~ThreadTimer() override;
  void cancel() override;

 private:
  struct State {
    std::mutex mutex;
    std::condition_variable changed;
    bool cancelled = false;
  };
  static void run(const std::shared_ptr<State>& state, Duration first, Duration interval,
                  const std::function<void()>& onFire);

  std::shared_ptr<State> state_;
};

}  // namespace kwtsdk::internal
