#pragma once

#include <signal.h>

#include <atomic>
#include <memory>
#include <optional>
#include <stop_token>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::tool {

/// SIGINT (Ctrl-C), SIGTERM and SIGHUP (the terminal has gone) as a request to stop, made on a thread of its
/// own, where locks may be taken and memory allocated: a signal handler may not. From the second time on they
/// end the program as usual. One a program.
class Interrupt {
 public:
  /// Blocks the signals for this thread and those that it starts: create this before every other thread.
  explicit Interrupt(Scheduler& scheduler);
  ~Interrupt();
  Interrupt(const Interrupt&) = delete;
  Interrupt& operator=(const Interrupt&) = delete;

  std::stop_token token() const { return stop_.get_token(); }

  /// The same request when so much time is over. Once.
  void stopAfter(Duration time);

  /// Whether that was the first one.
  bool isTimeOver() const { return *timeOver_; }

 private:
  void watch();
  void onSignal(int number);

  Scheduler& scheduler_;
  sigset_t signals_{};
  std::atomic<bool> ending_{false};
  std::stop_source stop_;
  std::optional<Duration> stopped_;  // on the watching thread only
  const std::shared_ptr<std::atomic<bool>> timeOver_ = std::make_shared<std::atomic<bool>>(false);
  std::shared_ptr<Timer> timer_;
  std::shared_ptr<SerialQueue> queue_;
};

}  // namespace kwtsdk::tool
