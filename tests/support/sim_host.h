#pragma once

#include <array>
#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/fault_plan.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/scripted_faults.h>
#include <kwtsdk/sim/simulated_link.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include "codec/hex.h"
#include "tests/support/fake_peripheral.h"
#include "tests/support/noted_settings.h"

namespace kwtsdk::testing {

using namespace std::literals;
using sim::VirtualTimeScheduler;

/// Bytes that differ from one another and between recordings.
inline Bytes recordingOf(std::size_t size, unsigned number = 1) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>((i * 31 + i / 251 + number * 7) | 1);
  return bytes;
}

// What completions get, as text: "ok" or code and description, then the values, "none" where there is none.
inline std::string shown(const MaybeError& error) {
  return error ? std::to_string(error->code()) + " " + error->localizedDescription() : "ok";
}
template <class T>
std::string shown(const T& value) {
  if constexpr (std::integral<T>)
    return std::to_string(value);
  else if constexpr (std::same_as<T, std::string>)
    return value;
  else if constexpr (std::same_as<T, ByteCounts>)
    return shown(value.at(0)) + "," + shown(value.at(1));
  else if constexpr (std::same_as<T, FlashInfo>)
    return shown(value.Num) + "," + shown(value.FirstID);
  else if constexpr (std::same_as<T, KWTFileHeader>)
    return value.exist() ? "some" : "missing";
  else
    return "some";
}
template <class T>
std::string shown(const std::optional<T>& value) {
  return value ? shown(*value) : "none";
}

/// A completion of any kind that writes down what it gets.
inline auto into(Lines& outcomes) {
  return [&outcomes](const MaybeError& error, const auto&... values) {
    outcomes.push_back((shown(error) + ... + (" " + shown(values))));
  };
}

/// A callback that does something more before the one that it wraps.
inline ReplyHandler wrapped(ReplyHandler inner, std::function<void()> before) {
  return [inner = std::move(inner), before = std::move(before)](const MaybeError& error, const auto& reply) {
    before();
    inner(error, reply);
  };
}

/// A completion that signals and keeps what it was given last.
struct Outcome {
  explicit Outcome(Scheduler& scheduler) : done(scheduler.semaphore("outcome")) {}

  auto completion() {
    // With a reference of its own: who waits may be gone before the signal has returned.
    return [this, signalled = done](const MaybeError& given, const auto&... values) {
      ((value = shown(values)), ...);
      ++calls;
      error = given;
      signalled->signal();
    };
  }
  template <class T>
  ValueCompletion<T> completion(std::optional<T>& result) {
    return [take = completion(), &result](const MaybeError& given, const std::optional<T>& got) {
      result = got;
      take(given);
    };
  }
  bool wait(Duration timeout = std::chrono::minutes(5)) { return done->wait(timeout); }
  std::string text() const { return shown(error); }

  /// What it ended with, as text.
  std::string ended(Duration timeout = std::chrono::minutes(5)) {
    return wait(timeout) ? text() : "not ended";
  }

  std::shared_ptr<Semaphore> done;
  MaybeError error;
  std::string value;
  int calls = 0;
};

/// A facade attached to a simulated recorder; its requests are written down as hex in the order answered.
struct SimHost {
  explicit SimHost(const std::shared_ptr<Scheduler>& scheduler, sim::LinkTiming timing = {},
                   std::shared_ptr<sim::FaultPlan> faults = nullptr, std::shared_ptr<Log> other = nullptr,
                   const std::shared_ptr<Scheduler>& ofFacade = nullptr)
      : model(std::make_shared<sim::RecorderModel>(store)),
        link(sim::SimulatedLink::create(scheduler, model, timing, std::move(faults))),
        outcome(*scheduler),
        helper(KWTBluetoothHelper::create({ofFacade ? ofFacade : scheduler, std::make_shared<NotedSettings>(),
                                           nullptr, other ? std::move(other) : log})) {
    model->setBatteryLevel(87);
    model->setVersion({0, 1, 2, 3});
    link->attach(helper);
    setReplies([](const std::string&, Bytes reply) { return reply; });
  }

  /// `replies` gets each request as hex with its answer and gives what is sent; none: silence.
  void setReplies(std::function<std::optional<Bytes>(const std::string& request, Bytes reply)> replies) {
    model->setReplyFilter([this, replies = std::move(replies)](const Bytes& request, Bytes reply) {
      const std::string text = internal::hexString(request);
      if (requests.empty() || requests.back() != text || !text.starts_with("0382")) requests.push_back(text);
      return replies(text, std::move(reply));
    });
  }

  /// The first two bytes of each request, packets of one download counted once.
  Lines commands() const {
    Lines commands;
    for (const auto& request : requests) commands.push_back(request.substr(0, 4));
    return commands;
  }

  std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  Lines requests;
  std::shared_ptr<sim::MemoryStore> store = std::make_shared<sim::MemoryStore>(10);
  std::shared_ptr<sim::RecorderModel> model;
  std::shared_ptr<sim::SimulatedLink> link;
  Outcome outcome;
  std::shared_ptr<KWTBluetoothHelper> helper;
};

/// The same on virtual time, with faults that a test chooses.
struct VirtualHost : SimHost {
  explicit VirtualHost(
      const std::shared_ptr<VirtualTimeScheduler>& virtualTime,
      const std::shared_ptr<sim::ScriptedFaults>& plan = std::make_shared<sim::ScriptedFaults>())
      : SimHost(virtualTime, {}, plan), scheduler(*virtualTime), faults(*plan) {}

  VirtualTimeScheduler& scheduler;
  sim::ScriptedFaults& faults;
};

/// Runs `body` with a `Scene` of its own on virtual time.
template <class Scene>
void play(const std::function<void(Scene&)>& body, std::uint64_t seed = 1) {
  const auto scheduler = VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    Scene scene(scheduler);
    body(scene);
  });
}

/// The same under each of so many seeds, which `body` is told.
template <class Scene, class Body>
void playSeeds(std::uint64_t count, const Body& body) {
  for (std::uint64_t seed = 1; seed <= count; ++seed)
    play<Scene>([&](Scene& scene) { body(scene, seed); }, seed);
}

/// Runs `body` for each case with a `Scene` of its own; what a tuple holds are arguments.
template <class Scene, class Cases, class Body>
void playEach(const Cases& cases, const Body& body) {
  for (const auto& test : cases) {
    play<Scene>([&](Scene& scene) {
      const auto call = [&](const auto&... values) { body(scene, values...); };
      if constexpr (requires { std::tuple_size<std::decay_t<decltype(test)>>::value; })
        std::apply(call, test);
      else
        call(test);
    });
  }
}

}  // namespace kwtsdk::testing
