#pragma once

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <string>
#include <vector>

#include <sched.h>

#include <benchmark/benchmark.h>

namespace kwtsdk::bench {

/// One figure and the most that it may be. The table at the end shows all of them.
struct Limit {
  std::string name;
  double most = 1;
  std::string unit = "ratio";
};

/// Takes down what was measured, also as a counter of the benchmark.
void report(benchmark::State& state, const Limit& limit, double measured);

/// Ends a benchmark that cannot be measured; the run then fails.
void fail(benchmark::State& state, const std::string& why);

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

/// The peak of the process's memory in bytes, as Linux keeps it.
double peakMemory();

/// What other benchmarks needed must not hide what this one needs. False when the system does not let it.
bool forgetPeak();

/// Real-time priority for this thread and those it starts, where the system permits it: other programs cannot
/// come between two threads that wake each other, and the scheduler places them the same way each time. Only
/// for what leaves the processors idle or ends within seconds.
class Undisturbed {
 public:
  Undisturbed();
  ~Undisturbed();
  Undisturbed(const Undisturbed&) = delete;
  Undisturbed& operator=(const Undisturbed&) = delete;

 private:
  int policy_ = SCHED_OTHER;
  sched_param before_{};
};

}  // namespace kwtsdk::bench
