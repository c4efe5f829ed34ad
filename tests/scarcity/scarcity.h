#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <ostream>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include <kwtsdk/scheduler.h>

namespace kwtsdk::testing {

/// Memory, queues' threads and timers that run out: one request is refused, or that one and all that follow.
/// Requests count on threads that say so, and in what they give to a scarceScheduler().
struct Scarcity {
  enum class Of { memory, threads };
  Of of = Of::memory;
  std::uint64_t at = 0;  // which request; 0: none is refused
  bool isLasting = false;

  /// From now on. `title` is named when the process dies or hangs of it.
  void begin(const std::string& title) const;

  /// How many requests there have been.
  static std::uint64_t end();
};

/// What a test is called by.
inline void PrintTo(const Scarcity& scarcity, std::ostream* to) {
  *to << (scarcity.of == Scarcity::Of::memory ? "memory" : "threads")
      << (scarcity.isLasting ? ", from one on" : ", once");
}

/// While it lives, this thread's requests count, or do not.
class Counting {
 public:
  explicit Counting(bool counts = true) : before_(std::exchange(isOn, counts)) {}
  ~Counting() { isOn = before_; }
  Counting(const Counting&) = delete;
  Counting& operator=(const Counting&) = delete;

  static inline thread_local bool isOn = false;

 private:
  const bool before_;
};

/// What each suite is instantiated with.
inline auto everyScarcity() {
  using Of = Scarcity::Of;
  return ::testing::Values(Scarcity{Of::memory, 0, false}, Scarcity{Of::memory, 0, true},
                           Scarcity{Of::threads, 0, false}, Scarcity{Of::threads, 0, true});
}

/// Runs each operation of the table with one refusal at each request that it makes; of those in the middle of
/// a long one, which are alike, some. KWTSDK_EVERY=1 in the environment: all of them. `run` gives the number
/// of requests.
template <class Table, class Run>
void atEachRequest(Scarcity scarcity, const Table& operations, const Run& run) {
  const bool isSlow = std::getenv("KWTSDK_SEEDS") != nullptr;  // a sanitizer's
  const std::uint64_t edge = isSlow ? 20 : 130, step = std::getenv("KWTSDK_EVERY") ? 1 : isSlow ? 211 : 61;
  for (const auto& operation : operations) {
    scarcity.at = 0;
    const std::uint64_t count = run(scarcity, operation);
    for (std::uint64_t at = 1; at <= count; at += at > edge && at + edge < count ? step : 1) {
      SCOPED_TRACE(operation.name + (" request " + std::to_string(at)));
      scarcity.at = at;
      run(scarcity, operation);
    }
  }
}

/// What it needs itself is spared, but each of its objects, pieces of work and timers takes one request.
std::shared_ptr<Scheduler> scarceScheduler(std::shared_ptr<Scheduler> real);

}  // namespace kwtsdk::testing
