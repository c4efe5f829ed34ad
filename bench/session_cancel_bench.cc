#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>

#include <benchmark/benchmark.h>

#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "bench/measure.h"
#include "bench/ogg_store.h"
#include "bench/session_host.h"
#include "tests/support/temporary_folder.h"
#include "wire/status_channel.h"

namespace kwtsdk::bench {
namespace {

using namespace std::literals;
using session::Session;

/// A link that takes long to be made, and hears it when it is not wanted any more.
class SlowLink : public session::Link {
 public:
  SlowLink(std::shared_ptr<session::Link> link, Scheduler& scheduler)
      : link_(std::move(link)), unwanted_(scheduler.semaphore("unwanted")) {}

  void setEvents(Events events) override { link_->setEvents(std::move(events)); }
  MaybeError open() override {
    if (unwanted_->wait(20s)) return Error{"kwt.bench", 1, {}};
    return link_->open();
  }
  void close() override {
    unwanted_->signal();
    link_->close();
  }
  std::shared_ptr<Peripheral> peripheral() const override { return link_->peripheral(); }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    return link_->characteristics();
  }

 private:
  const std::shared_ptr<session::Link> link_;
  const std::shared_ptr<Semaphore> unwanted_;
};

class Frames : public session::Work {
 public:
  std::string name() const override { return "frames"; }
  session::Result<session::Done> run(session::Transaction& recorder) override {
    for (;;) {
      const auto answer = recorder.exchange(
          wire::statusRequest(wire::StatusQuery::power), wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
          wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY, [](const Bytes&) { return true; });
      if (!answer) return answer.error();
      if (const auto paused = recorder.pause(10s); !paused) return paused;
    }
  }
};

/// An operation that runs, whatever its value.
struct Running {
  template <class T>
  Running(session::Operation<T> operation)  // NOLINT: meant to convert
      : cancel([operation] { operation.cancel(); }),
        done([operation] { return operation.done(); }),
        ends([operation] { return operation.waitFor(1min).has_value(); }) {}

  std::function<void()> cancel;
  std::function<bool()> done, ends;
};

struct Asked {
  const char* name;
  Running (*start)(Session& session, const testing::TemporaryFolder& folder);
};

// All but live recordings, which are stopped first, and an image that was accepted: none is so soon.
constexpr std::array<Asked, 13> kAsked{{
    {"connect", [](Session& session, const auto&) -> Running { return session.connect(); }},
    {"battery", [](Session& session, const auto&) -> Running { return session.battery(); }},
    {"firmware", [](Session& session, const auto&) -> Running { return session.firmware(); }},
    {"storage", [](Session& session, const auto&) -> Running { return session.storage(); }},
    {"status", [](Session& session, const auto&) -> Running { return session.status(); }},
    {"recordings", [](Session& session, const auto&) -> Running { return session.recordings(); }},
    {"download",
     [](Session& session, const auto& at) -> Running { return session.download(at.file("one")); }},
    {"downloadAll",
     [](Session& session, const auto& at) -> Running { return session.downloadAll(at.path()); }},
    {"remove", [](Session& session, const auto&) -> Running { return session.remove(1); }},
    {"update", [](Session& session, const auto& at) -> Running { return session.update(at.file("image")); }},
    {"transact",
     [](Session& session, const auto&) -> Running { return session.transact(std::make_shared<Frames>()); }},
    {"queued",
     [](Session& session, const auto&) -> Running {
       const auto before = session.transact(std::make_shared<Frames>());
       return session.battery();
     }},
    {"next",
     [](Session& session, const auto&) -> Running {
       const auto events = session.events();
       Running running = events.next();
       running.done = [events, done = running.done] { return done(); };  // a stream let go ends
       return running;
     }},
}};

enum class Trouble { none, noAnswers, noLink };

/// Virtual time from the cancellation of an operation, so long after its beginning, to its end; none when it
/// had ended by then.
std::optional<Duration> cancellation(const Asked& asked, Trouble trouble, Duration after) {
  const sim::LinkTiming timing{.latency = 5ms, .connectionInterval = 15ms};
  const testing::TemporaryFolder folder;
  testing::writeFile(folder.file("image"), std::string(256 * 1024, 'x'));
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  std::optional<Duration> took;
  scheduler->run([&] {
    const SimulatedRecorder recorder(std::make_shared<OggStore>(16), scheduler, timing);
    if (trouble == Trouble::noAnswers) {
      recorder.model->setReplyFilter([](const Bytes&, const Bytes&) { return std::nullopt; });
    }
    std::shared_ptr<session::Link> link = session::linkOver(recorder.link);
    if (trouble == Trouble::noLink) link = std::make_shared<SlowLink>(std::move(link), *scheduler);
    const auto session = sessionOver(std::move(link), scheduler);
    const Running running = asked.start(*session, folder);
    scheduler->sleep(after);
    if (running.done()) return;
    const Duration began = scheduler->now();
    running.cancel();
    took = running.ends() ? scheduler->now() - began : Duration::max();
  });
  return took;
}

/// Of one operation, whatever goes wrong, at different moments; none when it never ran.
std::optional<Duration> longestCancellation(const Asked& asked) {
  std::optional<Duration> longest;
  for (const Trouble trouble : {Trouble::none, Trouble::noAnswers, Trouble::noLink}) {
    for (const Duration after : {0ms, 1ms, 7ms, 21ms, 43ms, 70ms, 333ms, 3001ms}) {
      longest = std::max(longest, cancellation(asked, trouble, after));
    }
  }
  return longest;
}

void sessionCancel(benchmark::State& state) {
  constexpr Duration kMost = 100ms;
  Duration longest{0};
  for (auto _ : state) {
    for (const Asked& asked : kAsked) {
      const auto took = longestCancellation(asked);
      if (!took) return fail(state, std::string("An operation ended before it was cancelled: ") + asked.name);
      state.counters[std::string(asked.name) + "_ms"] =
          std::chrono::duration<double, std::milli>(*took).count();
      longest = std::max(longest, *took);
    }
  }
  const std::string count = std::to_string(kAsked.size());
  report(state,
         {.name = "session, cancel to end, longest of " + count + " operations / 100 ms of virtual time"},
         std::chrono::duration<double>(longest) / kMost);
}
BENCHMARK(sessionCancel)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace kwtsdk::bench
