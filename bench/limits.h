#pragma once

#include <string>

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

/// Prints the table. False when a limit is exceeded, a benchmark failed or nothing was measured.
bool printLimits();

}  // namespace kwtsdk::bench
