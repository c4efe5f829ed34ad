#pragma once

#include <signal.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::tool {

/// SIGINT (Ctrl-C) and SIGTERM as a call on a thread of its own, where locks may be taken and memory
/// allocated: a signal handler may not. Without an action, and from the second time on, they end the program
/// as usual. One a program.
class Interrupt {
 public:
  /// Blocks the signals for this thread and those that it starts: create this before every other thread.
  explicit Interrupt(Scheduler& scheduler);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  /// Called for the next signal, once; empty: none.
  void setAction(std::function<void()> action);

  /// An action has ended the connection: whatever fails from now on fails for that reason.
  void noteDisconnected() { disconnected_ = true; }
  bool hasDisconnected() const { return disconnected_; }

 private:
  void watch();
  void onSignal(int number);
  std::function<void()> takeAction();

  const Scheduler& scheduler_;
  sigset_t signals_{};
  std::atomic<bool> stopping_{false}, disconnected_{false};
  internal::Mutex mutex_;
  std::function<void()> action_ KWT_GUARDED_BY(mutex_);
  std::optional<Duration> acted_;  // on the watching thread only
  std::shared_ptr<SerialQueue> queue_;
};

}  // namespace kwtsdk::tool
