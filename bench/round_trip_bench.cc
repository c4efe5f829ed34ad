#include <thread>

#include <benchmark/benchmark.h>

#include "bench/host.h"
#include "bench/measure.h"
#include "bench/yardsticks.h"

namespace kwtsdk::bench {
namespace {

constexpr std::int64_t kLevel = 87;

std::optional<Bytes> batteryReply(const Bytes&) {
  Bytes reply(32);
  reply[24] = kLevel;
  return reply;
}

void roundTrip(benchmark::State& state) {
  constexpr int kTrips = 200;
  const Undisturbed undisturbed;
  Host host(batteryReply);
  BareTrip bare(2);  // the threads that a command passes: worker and link
  int wrong = host.helper->getPower() == kLevel ? 0 : 1;  // starts the queue's thread
  compare(
      state, {.name = "getPower() / bare round trip of three threads", .most = 1.5}, kWall, kTrips,
      [&] {
        for (int i = 0; i < kTrips; ++i) wrong += host.helper->getPower() == kLevel ? 0 : 1;
      },
      [&] {
        for (int i = 0; i < kTrips; ++i) bare.go();
      });
  if (wrong != 0) fail(state, "getPower() gave no answer or a wrong one");
}
BENCHMARK(roundTrip)->Iterations(41)->UseManualTime()->Unit(benchmark::kMillisecond);

// A facade with its queues' threads started and its watchdog armed, and nothing to do.
void idle(benchmark::State& state) {
  Host host(batteryReply);
  host.helper->getPower();
  host.helper->getFirmwareVersion();
  host.helper->notifyDownloadSuccess();
  std::vector<double> shares;
  for (auto _ : state) {
    host.helper->startMonitorTimer(nullptr);
    const double began = kProcess();
    const double wall = secondsOf(kWall, [] { std::this_thread::sleep_for(std::chrono::seconds(1)); });
    shares.push_back((kProcess() - began) / wall);
    state.SetIterationTime(wall);
  }
  report(state, {.name = "idle facade: processor time / time", .most = 0.01}, median(shares));
}
BENCHMARK(idle)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace kwtsdk::bench
