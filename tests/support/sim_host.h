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

/// Bytes that differ from one another and between recordings.
inline Bytes recordingOf(std::size_t size, unsigned number = 1) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<std::uint8_t>((i * 31 + i / 251 + number * 7) | 1);
  return bytes;
}

/// A facade attached to a simulated recorder; its requests are written down as hex in the order answered.
struct SimHost {
  explicit SimHost(const std::shared_ptr<Scheduler>& scheduler, sim::LinkTiming timing = {},
                   std::shared_ptr<sim::FaultPlan> faults = nullptr)
      : model(std::make_shared<sim::RecorderModel>(store)),
        link(sim::SimulatedLink::create(scheduler, model, timing, std::move(faults))),
        helper(KWTBluetoothHelper::create(
            {.scheduler = scheduler, .settings = nullptr, .opusConverter = nullptr, .log = log})) {
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
  std::vector<std::string> commands() const {
    std::vector<std::string> commands;
    for (const auto& request : requests) commands.push_back(request.substr(0, 4));
    return commands;
  }

  std::shared_ptr<LineLog> log = std::make_shared<LineLog>();
  std::vector<std::string> requests;
  std::shared_ptr<sim::MemoryStore> store = std::make_shared<sim::MemoryStore>(10);
  std::shared_ptr<sim::RecorderModel> model;
  std::shared_ptr<sim::SimulatedLink> link;
  std::shared_ptr<KWTBluetoothHelper> helper;
};

/// Runs `body` against a simulated recorder on virtual time.
inline void onVirtualTime(const std::function<void(SimHost&, sim::VirtualTimeScheduler&)>& body,
                          std::shared_ptr<sim::FaultPlan> faults = nullptr, std::uint64_t seed = 1) {
  const auto scheduler = sim::VirtualTimeScheduler::create(seed);
  scheduler->run([&] {
    SimHost host(scheduler, {}, std::move(faults));
    body(host, *scheduler);
  });
}

/// A completion that signals and keeps what it was given, once.
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

  std::shared_ptr<Semaphore> done;
  MaybeError error;
  int calls = 0;
};

}  // namespace kwtsdk::testing
