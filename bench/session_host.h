#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include <kwtsdk/session/adapters.h>
#include <kwtsdk/session/session.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/simulated_link.h>

#include "bench/host.h"

namespace kwtsdk::bench {

/// A recorder and a link to it that takes no time.
struct SimulatedRecorder {
  static constexpr std::int64_t kLevel = 87;

  explicit SimulatedRecorder(
      std::shared_ptr<sim::RecordingStore> store = std::make_shared<sim::MemoryStore>(),
      const std::shared_ptr<Scheduler>& scheduler = threadScheduler(), sim::LinkTiming timing = {})
      : model(std::make_shared<sim::RecorderModel>(std::move(store))),
        link(sim::SimulatedLink::create(scheduler, model, timing)) {
    model->setBatteryLevel(kLevel);
  }

  const std::shared_ptr<sim::RecorderModel> model;
  const std::shared_ptr<sim::SimulatedLink> link;
};

/// A Session that keeps its link, with its log discarded.
inline std::shared_ptr<session::Session> sessionOver(
    std::shared_ptr<session::Link> link, const std::shared_ptr<Scheduler>& scheduler = threadScheduler()) {
  return session::Session::create(
      std::move(link), session::Options().platform(quietPlatform(scheduler)).keepLink(std::nullopt));
}

template <class T>
bool succeeds(const session::Operation<T>& operation) {
  return operation.wait().has_value();
}

}  // namespace kwtsdk::bench
