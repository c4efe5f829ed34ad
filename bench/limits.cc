#include "bench/limits.h"

#include <cstdio>
#include <vector>

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

bool printLimits() {
  const Results& all = results();
  std::printf("\n");
  for (const auto& line : all.lines) std::printf("%s\n", line.c_str());
  if (all.lines.empty()) std::printf("No limit was measured: check --benchmark_filter.\n");
  if (!all.passed) std::printf("A limit is exceeded or a benchmark failed; repeat on a quieter machine.\n");
  return all.passed && !all.lines.empty();
}

}  // namespace kwtsdk::bench
