#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <vector>

#include <benchmark/benchmark.h>

#include "bench/limits.h"

namespace kwtsdk::bench {

inline double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Seconds on the clock of the wall, of this thread's work and of this process's.
using Clock = double (*)();
template <clockid_t kId>
double secondsOn() {
  timespec now{};
  ::clock_gettime(kId, &now);
  return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}
inline constexpr Clock kWall = secondsOn<CLOCK_MONOTONIC>, kThread = secondsOn<CLOCK_THREAD_CPUTIME_ID>,
                       kProcess = secondsOn<CLOCK_PROCESS_CPUTIME_ID>;

template <class Work>
double secondsOf(Clock clock, Work&& work) {
  const double began = clock();
  work();
  return clock() - began;
}

/// What `items` pieces of work cost beside a yardstick, measured in turn: each round compares with what the
/// machine gave in the same moment, and the round in the middle counts. Register with Iterations(rounds) and
/// UseManualTime(); the benchmark's time is that of one round of the subject. kThread suits calculations: it
/// leaves out the time in which the thread did not run.
template <class Subject, class Yardstick>
void compare(benchmark::State& state, const Limit& limit, Clock clock, std::uint64_t items, Subject&& subject,
             Yardstick&& yardstick) {
  std::vector<double> subjects, yardsticks, ratios;
  for (auto _ : state) {
    const bool first = ratios.size() % 2 == 0;  // neither of the two always finds the other's cold caches
    double own = first ? secondsOf(clock, subject) : 0;
    const double other = secondsOf(clock, yardstick);
    if (!first) own = secondsOf(clock, subject);
    state.SetIterationTime(own);
    subjects.push_back(own);
    yardsticks.push_back(other);
    ratios.push_back(own / other);
  }
  if (state.error_occurred()) return;
  const double perItem = 1e9 / static_cast<double>(items);
  state.counters["ns"] = median(subjects) * perItem;
  state.counters["yardstick_ns"] = median(yardsticks) * perItem;
  report(state, limit, median(ratios));
}

}  // namespace kwtsdk::bench
