#include <thread>

#include <benchmark/benchmark.h>

#include <kwtsdk/gatt/peripheral.h>

#include "bench/measure.h"
#include "bench/session_host.h"
#include "bench/yardsticks.h"

namespace kwtsdk::bench {
namespace {

void sessionQuery(benchmark::State& state) {
  constexpr int kQueries = 200;
  const Undisturbed undisturbed;
  const SimulatedRecorder recorder;
  const auto session = sessionOver(session::linkOver(recorder.link));
  BareReturn bare;
  const auto isWrong = [&] { return session->battery().wait().value_or(0) != recorder.kLevel ? 1 : 0; };
  int wrong = isWrong();  // makes the link
  compare(
      state, {.name = "session, query / bare round trip of three threads", .most = 1.5}, kWall, kQueries,
      [&] {
        for (int i = 0; i < kQueries; ++i) wrong += isWrong();
      },
      [&] {
        for (int i = 0; i < kQueries; ++i) bare.go();
      });
  if (wrong != 0) fail(state, "A query gave no answer or a wrong one");
}
BENCHMARK(sessionQuery)->Iterations(41)->UseManualTime()->Unit(benchmark::kMillisecond);

/// Counts what passes over the air: writes, those among them that switch notifications, and notifications.
class CountedLink {
 public:
  explicit CountedLink(std::shared_ptr<sim::SimulatedLink> link)
      : link_(std::move(link)), peripheral_(std::make_shared<CountedPeripheral>(*link_, exchanges_)) {}

  using Event = sim::SimulatedLink::Event;
  void setEvents(Event didWrite, Event didUpdate) {
    link_->setEvents(std::move(didWrite), [this, didUpdate = std::move(didUpdate)](const auto&... what) {
      ++exchanges_;
      if (didUpdate) didUpdate(what...);
    });
  }
  void setOnDisconnect(std::function<void()> onDisconnect) {
    link_->setOnDisconnect(std::move(onDisconnect));
  }
  void connect() { link_->connect(); }
  void disconnect() { link_->disconnect(); }
  std::shared_ptr<Peripheral> peripheral() const { return peripheral_; }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const { return link_->characteristics(); }

  /// Those of one call, and of what it leaves behind.
  template <class Call>
  double exchangesOf(const Call& call) {
    link_->drain();
    const int before = exchanges_;
    call();
    link_->drain();
    return exchanges_ - before;
  }

 private:
  class CountedPeripheral : public gatt::ForwardingPeripheral {
   public:
    CountedPeripheral(const sim::SimulatedLink& link, std::atomic<int>& writes)
        : ForwardingPeripheral(link.peripheral()), writes_(writes) {}
    void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override {
      ++writes_;
      ForwardingPeripheral::writeValue(value, to, type);
    }
    void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& of) override {
      ++writes_;
      ForwardingPeripheral::setNotifyValue(enabled, of);
    }

   private:
    std::atomic<int>& writes_;
  };

  std::atomic<int> exchanges_{0};
  const std::shared_ptr<sim::SimulatedLink> link_;
  const std::shared_ptr<Peripheral> peripheral_;
};

// One write and one notification, where the facade also subscribes before and unsubscribes behind.
void sessionExchanges(benchmark::State& state) {
  const SimulatedRecorder recorder, facades;
  const auto counted = std::make_shared<CountedLink>(recorder.link);
  CountedLink countedForFacade(facades.link);
  const auto session = sessionOver(session::linkOver(counted));
  const auto helper = KWTBluetoothHelper::create(quietPlatform());
  helper->setConnectedPeripheral(countedForFacade.peripheral());
  for (const auto& each : countedForFacade.characteristics()) helper->addDiscoveredCharacteristic(each);
  countedForFacade.setEvents([&](const auto&... what) { helper->didWriteValueForCharacteristic(what...); },
                             [&](const auto&... what) { helper->didUpdateValueForCharacteristic(what...); });
  if (!succeeds(session->connect())) return fail(state, "The link was not made");
  bool isAnswered = true;
  for (auto _ : state) {
    const double own = counted->exchangesOf([&] { isAnswered = isAnswered && succeeds(session->battery()); });
    const double other = countedForFacade.exchangesOf(
        [&] { isAnswered = isAnswered && helper->getPower() == recorder.kLevel; });
    state.counters["session"] = own;
    state.counters["facade"] = other;
    report(state, {.name = "session, ATT exchanges of a query / the facade's", .most = 0.5}, own / other);
  }
  if (!isAnswered) fail(state, "A query gave no answer or a wrong one");
  facades.link->setEvents(nullptr, nullptr);
}
BENCHMARK(sessionExchanges)->Iterations(1)->Unit(benchmark::kMillisecond);

// The link is open and has been used, and nothing is to be done.
void sessionIdle(benchmark::State& state) {
  const SimulatedRecorder recorder;
  const auto session = sessionOver(session::linkOver(recorder.link));
  const auto events = session->events();
  if (!succeeds(session->status())) return fail(state, "A query gave no answer");
  std::vector<double> shares;
  for (auto _ : state) {
    const double began = kProcess();
    const double wall = secondsOf(kWall, [] { std::this_thread::sleep_for(std::chrono::seconds(1)); });
    shares.push_back((kProcess() - began) / wall);
    state.SetIterationTime(wall);
  }
  report(state, {.name = "session at rest: processor time / time", .most = 0.001}, median(shares));
}
BENCHMARK(sessionIdle)->Iterations(3)->UseManualTime()->Unit(benchmark::kSecond);

}  // namespace
}  // namespace kwtsdk::bench
