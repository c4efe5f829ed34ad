#pragma once

#include <functional>
#include <memory>
#include <string>
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

namespace kwtsdk::testing {

using sim::VirtualTimeScheduler;

/// Bytes that differ from one another and between recordings.
inline Bytes recordingOf(std::size_t size, unsigned number = 1) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>((i * 31 + i / 251 + number * 7) | 1);
  return bytes;
}

/// A completion that signals and keeps what it was given last.
struct Outcome {
  explicit Outcome(Scheduler& scheduler) : done(scheduler.semaphore("outcome")) {}

  Completion completion() {
    return [this](const MaybeError& given) { take(given); };
  }
  template <class T>
  ValueCompletion<T> completion(std::optional<T>& value) {
    return [this, &value](const MaybeError& given, const std::optional<T>& result) {
      value = result;
      take(given);
    };
  }
  void take(const MaybeError& given) {
    ++calls;
    error = given;
    done->signal();
  }
  bool wait(Duration timeout = std::chrono::minutes(5)) { return done->wait(timeout); }
  std::string text() const {
    return error ? std::to_string(error->code()) + " " + error->localizedDescription() : std::string("ok");
  }

  /// What it ended with, as text.
  std::string ended(Duration timeout = std::chrono::minutes(5)) {
    return wait(timeout) ? text() : "not ended";
  }

  std::shared_ptr<Semaphore> done;
  MaybeError error;
  int calls = 0;
};

/// A facade attached to a simulated recorder; its requests are written down as hex in the order answered.
struct SimHost {
  explicit SimHost(const std::shared_ptr<Scheduler>& scheduler, sim::LinkTiming timing = {},
                   std::shared_ptr<sim::FaultPlan> faults = nullptr)
      : model(std::make_shared<sim::RecorderModel>(store)),
        link(sim::SimulatedLink::create(scheduler, model, timing, std::move(faults))),
        outcome(*scheduler),
        helper(KWTBluetoothHelper::create({scheduler, nullptr, nullptr, log})) {
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

/// Runs `body` with a `Scene` of its own on virtual time.
template <class Scene>
void play(const std::function<void(Scene&)>& body, std::uint64_t seed = 1) {
  const auto scheduler = VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    Scene scene(scheduler);
    body(scene);
  });
}

/// Runs `body` against a simulated recorder on virtual time.
inline void onVirtualTime(const std::function<void(SimHost&, VirtualTimeScheduler&)>& body,
                          std::shared_ptr<sim::FaultPlan> faults = nullptr) {
  const auto scheduler = VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    SimHost host(scheduler, {}, std::move(faults));
    body(host, *scheduler);
  });
}

}  // namespace kwtsdk::testing
