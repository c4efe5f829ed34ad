#pragma once

#include <chrono>
#include <optional>
#include <stop_token>
#include <utility>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::session {

/// When an operation gives up. What is left out:
///   timeout     status and firmware queries, connect: 30 s; recordings, remove: 2 min; all others: none
///   silence     10 s
///   reconnects  5
/// A token cancels as Operation::cancel() does; one that has asked already ends the operation at once.
class Limits {
 public:
  Limits() = default;
  Limits(std::stop_token token) : stop_(std::move(token)) {}  // NOLINT: meant to convert

  /// The whole operation, waiting in the queue and connecting included. None: no limit but silence.
  Limits& timeout(Duration longest) & { return timeout_ = longest, *this; }
  Limits&& timeout(Duration longest) && { return std::move(timeout(longest)); }

  /// Without any acknowledgement or notification from the recorder.
  Limits& silence(Duration longest) & { return silence_ = longest, *this; }
  Limits&& silence(Duration longest) && { return std::move(silence(longest)); }

  /// How often a lost or stalled link is made again. Not for what cannot be continued: a live recording.
  Limits& reconnects(unsigned times) & { return reconnects_ = times, *this; }
  Limits&& reconnects(unsigned times) && { return std::move(reconnects(times)); }

  Limits& stop(std::stop_token token) & { return stop_ = std::move(token), *this; }
  Limits&& stop(std::stop_token token) && { return std::move(stop(std::move(token))); }

  const std::optional<Duration>& timeout() const { return timeout_; }
  Duration silence() const { return silence_; }
  unsigned reconnects() const { return reconnects_; }
  const std::stop_token& stop() const { return stop_; }

 private:
  std::optional<Duration> timeout_;
  Duration silence_ = std::chrono::seconds(10);
  unsigned reconnects_ = 5;
  std::stop_token stop_;
};

}  // namespace kwtsdk::session
