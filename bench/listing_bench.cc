#include <benchmark/benchmark.h>

#include "bench/measure.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::bench {
namespace {

using sim::VirtualTimeScheduler;

constexpr Duration kPause = std::chrono::milliseconds(3);

struct Listing {
  std::size_t files = 0, exchanges = 0;
  Duration paused{0};  // virtual time
};

/// A simulated recorder with a number of files, on virtual time.
class ListingHost {
 public:
  ListingHost(const std::shared_ptr<VirtualTimeScheduler>& scheduler, std::size_t files)
      : scheduler_(*scheduler), host_(scheduler) {
    for (std::size_t i = 0; i < files; ++i) host_.store->add(Bytes{1});
  }

  Listing list() {
    const Duration began = scheduler_.now();
    host_.requests.clear();
    testing::Outcome outcome(scheduler_);
    std::optional<std::vector<KWTFileHeader>> headers;
    host_.helper->getFlashFileList(outcome.completion(headers));
    if (!outcome.wait() || !headers) return {};
    return {headers->size(), host_.requests.size(), scheduler_.now() - began};
  }

 private:
  VirtualTimeScheduler& scheduler_;
  testing::SimHost host_;
};

// Too few is as wrong as too many.
double deviation(double found, double expected) { return std::max(found / expected, expected / found); }

void listingSteps(benchmark::State& state) {
  const auto files = static_cast<std::size_t>(state.range(0));
  Listing listing;
  for (auto _ : state) {
    const auto scheduler = VirtualTimeScheduler::create(1);
    scheduler->run([&] { listing = ListingHost(scheduler, files).list(); });
  }
  if (listing.files != files) return fail(state, "Files are missing in the list");
  const auto count = static_cast<double>(files);
  const std::string name = "listing of " + std::to_string(files) + " files, ";
  report(state, {name + "exchanges / (N + 2)"}, deviation(static_cast<double>(listing.exchanges), count + 2));
  const double pauses = std::chrono::duration<double>(listing.paused) / kPause;
  report(state, {name + "pauses / (N x 3 ms)"}, deviation(pauses, count));
}
BENCHMARK(listingSteps)->Arg(10)->Arg(100)->Arg(1000)->Iterations(1)->Unit(benchmark::kMillisecond);

// What one exchange costs the processor in a long listing and in short ones.
void listingCost(benchmark::State& state) {
  constexpr std::size_t kFew = 10;
  const auto files = static_cast<std::size_t>(state.range(0));
  const std::size_t exchanges = 2 * (files + 2);
  const auto scheduler = VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    ListingHost many(scheduler, files), few(scheduler, kFew);
    many.list();  // starts the threads of the queues
    few.list();
    compare(
        state, {"listing, an exchange of " + std::to_string(files) + " files / of 10", 1.5}, kWall, exchanges,
        [&] {
          many.list();
          many.list();
        },
        [&] {
          for (std::size_t done = 0; done < exchanges; done += kFew + 2) few.list();
        });
  });
}
BENCHMARK(listingCost)->Arg(100)->Arg(1000)->Iterations(15)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
