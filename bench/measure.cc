// What the benchmarks measure with, and the program that runs them and closes with the table of limits.

#include "bench/measure.h"

#include <cstdio>
#include <fstream>

#include <pthread.h>

namespace kwtsdk::bench {
namespace {

struct Results {
  std::vector<std::string> lines;
  bool passed = true;
};

Results& results() {
  static Results all;
  return all;
}

// False when a limit is exceeded, a benchmark failed or nothing was measured.
bool printResults() {
  const Results& all = results();
  std::printf("\n");
  for (const auto& line : all.lines) std::printf("%s\n", line.c_str());
  if (all.lines.empty()) std::printf("No limit was measured: check --benchmark_filter.\n");
  if (!all.passed) std::printf("A limit is exceeded or a benchmark failed; repeat on a quieter machine.\n");
  return all.passed && !all.lines.empty();
}

}  // namespace

void report(benchmark::State& state, const Limit& limit, double measured) {
  const bool kept = measured <= limit.most;
  char line[160];
  std::snprintf(line, sizeof line, "%s: %s %.3f (limit %.3g) %s", limit.name.c_str(), limit.unit.c_str(),
                measured, limit.most, kept ? "ok" : "EXCEEDED");
  results().lines.emplace_back(line);
  results().passed = results().passed && kept;
  state.counters[limit.unit] = measured;
}

void fail(benchmark::State& state, const std::string& why) {
  results().passed = false;
  state.SkipWithError(why.c_str());
}

double peakMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  double kibibytes = 0;
  while (status >> word) {
    if (word == "VmHWM:") status >> kibibytes;
  }
  return kibibytes * 1024;
}

bool forgetPeak() { return static_cast<bool>(std::ofstream("/proc/self/clear_refs") << 5 << std::flush); }

Undisturbed::Undisturbed() {
  pthread_getschedparam(pthread_self(), &policy_, &before_);
  const sched_param lowest{.sched_priority = sched_get_priority_min(SCHED_FIFO)};
  pthread_setschedparam(pthread_self(), SCHED_FIFO, &lowest);
}

Undisturbed::~Undisturbed() { pthread_setschedparam(pthread_self(), policy_, &before_); }

}  // namespace kwtsdk::bench

int main(int argc, char** argv) {
#ifndef __OPTIMIZE__
  std::fprintf(stderr,
               "kwtsdk_bench: built without optimisation; configure with CMAKE_BUILD_TYPE=Release.\n");
  return 2;
#endif
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return kwtsdk::bench::printResults() ? 0 : 1;
}
