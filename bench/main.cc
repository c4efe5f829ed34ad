#include <cstdio>

#include <benchmark/benchmark.h>

#include "bench/limits.h"

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
  return kwtsdk::bench::printLimits() ? 0 : 1;
}
