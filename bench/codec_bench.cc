#include <benchmark/benchmark.h>
#include <zlib.h>

#include "bench/measure.h"
#include "codec/crc32.h"
#include "codec/hex.h"

namespace kwtsdk::bench {
namespace {

Bytes sample(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 167 + i / 253);
  return bytes;
}

void crc32(benchmark::State& state) {
  const Bytes bytes = sample(1 << 20);
  const auto length = static_cast<uInt>(bytes.size());
  if (internal::crc32Value(bytes) != ::crc32(0, bytes.data(), length)) return fail(state, "The CRCs differ");
  compare(
      state, {.name = "CRC-32 of 1 MiB / zlib's", .most = 1}, kThread, bytes.size(),
      [&] { benchmark::DoNotOptimize(internal::crc32Value(bytes)); },
      [&] { benchmark::DoNotOptimize(::crc32(0, bytes.data(), length)); });
}
BENCHMARK(crc32)->Iterations(301)->UseManualTime()->Unit(benchmark::kMicrosecond);

// 1 GB/s of bytes is 1 ns for each.
template <class Convert>
void hexRate(benchmark::State& state, const char* name, Convert convert) {
  constexpr std::size_t kRound = 1 << 19;
  const auto size = static_cast<std::size_t>(state.range(0));
  const std::size_t calls = std::max<std::size_t>(1, kRound / size);
  std::vector<double> seconds;
  for (auto _ : state) {
    seconds.push_back(secondsOf(kThread, [&] {
      for (std::size_t i = 0; i < calls; ++i) benchmark::DoNotOptimize(convert());
    }));
    state.SetIterationTime(seconds.back());
  }
  const double nanoseconds = median(seconds) * 1e9 / static_cast<double>(calls * size);
  state.counters["GB/s"] = 1 / nanoseconds;
  report(state, {.name = name + std::to_string(size) + " bytes: 1 GB/s / rate", .most = 1}, nanoseconds);
}

void hexString(benchmark::State& state) {
  const Bytes bytes = sample(static_cast<std::size_t>(state.range(0)));
  hexRate(state, "hexString, ", [&] { return internal::hexString(bytes); });
}
BENCHMARK(hexString)->Arg(96)->Arg(65536)->Iterations(301)->UseManualTime()->Unit(benchmark::kMicrosecond);

void toData(benchmark::State& state) {
  const std::string text = internal::hexString(sample(static_cast<std::size_t>(state.range(0))));
  hexRate(state, "toData, ", [&] { return internal::toData(text); });
}
BENCHMARK(toData)->Arg(96)->Arg(65536)->Iterations(301)->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace kwtsdk::bench
