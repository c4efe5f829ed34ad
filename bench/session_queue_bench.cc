#include <algorithm>

#include <benchmark/benchmark.h>

#include "bench/measure.h"
#include "bench/session_host.h"

namespace kwtsdk::bench {
namespace {

/// Holds the worker back, and says when it has come there and when it goes on.
class Passage : public session::Work {
 public:
  std::string name() const override { return "passage"; }
  session::Result<session::Done> run(session::Transaction&) override {
    reached_->signal();
    if (opened_) opened_->wait(std::nullopt);
    passed_ = kWall();
    return session::Done{};
  }

  void close() { opened_ = threadScheduler()->semaphore("opened"); }
  void open() { opened_->signal(); }
  void waitUntilReached() { reached_->wait(std::nullopt); }
  double passedAt() const { return passed_; }

 private:
  const std::shared_ptr<Semaphore> reached_ = threadScheduler()->semaphore("reached");
  std::shared_ptr<Semaphore> opened_;
  double passed_ = 0;
};

/// Queues operations behind a worker that is held back, and lets it go. What is measured is the queueing, and
/// from the worker's first step to its last: how long two threads take to wake each other at both ends is
/// left out, since that is the same for few and for many.
class QueuedOperations {
 public:
  double seconds(std::size_t count) {
    const auto begin = std::make_shared<Passage>(), end = std::make_shared<Passage>();
    begin->close();
    const auto first = session_->transact(begin);
    begin->waitUntilReached();
    std::vector<session::Operation<std::uint64_t>> operations;
    operations.reserve(count);
    const double queueing = secondsOf(kWall, [&] {
      for (std::size_t i = 0; i < count; ++i) operations.push_back(session_->battery());
    });
    const auto last = session_->transact(end);
    begin->open();
    isComplete_ = isComplete_ && succeeds(last) && std::ranges::all_of(operations, succeeds<std::uint64_t>);
    return queueing + end->passedAt() - begin->passedAt();
  }
  bool isComplete() const { return isComplete_; }

 private:
  const SimulatedRecorder recorder_;
  const std::shared_ptr<session::Session> session_ = sessionOver(session::linkOver(recorder_.link));
  bool isComplete_ = true;
};

void sessionQueue(benchmark::State& state) {
  constexpr std::size_t kMany = 10000, kFew = 10, kTimes = 200;
  const Undisturbed undisturbed;
  QueuedOperations queued;
  queued.seconds(kFew);
  std::vector<double> ratios;
  for (auto _ : state) {
    double few = 0;
    for (std::size_t i = 0; i < kTimes; ++i) few += queued.seconds(kFew) / (kFew * kTimes);
    const double many = queued.seconds(kMany) / kMany;
    state.SetIterationTime(many * kMany);
    state.counters["ns"] = many * 1e9;
    state.counters["few_ns"] = few * 1e9;
    ratios.push_back(many / few);
  }
  if (!queued.isComplete()) return fail(state, "A queued query did not succeed");
  report(state, {.name = "session, an operation of 10,000 queued / of 10", .most = 1.2}, median(ratios));
}
BENCHMARK(sessionQueue)->Iterations(9)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
