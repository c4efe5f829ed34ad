#pragma once

#include <functional>
#include <memory>
#include <string>

#include <kwtsdk/kwtsdk.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/recorder_model.h>
#include <kwtsdk/sim/simulated_link.h>

#include "tests/campaign/observed_peripheral.h"
#include "tests/campaign/scenario.h"

namespace kwtsdk::campaign {

/// What the host threads of one scenario share.
struct Scene {
  sim::VirtualTimeScheduler& scheduler;
  const Profile& profile;
  Ledger& ledger;
  Trace& trace;
  sim::MemoryStore& store;
  sim::RecorderModel& model;
  sim::SimulatedLink& link;
  ObservedPeripheral& peripheral;
  KWTBluetoothHelper& helper;
  std::string path;
};

/// One thread of a host: a few random operations, each checked against what it has to report.
class HostThread {
 public:
  HostThread(Scene& scene, std::size_t number, std::uint64_t seed)
      : scene_(scene), number_(number), random_(seed) {}

  void run();

 private:
  struct Report {
    void take(sim::VirtualTimeScheduler& scheduler, const MaybeError& given, bool isRight);
    bool refusedAsBusy() const { return error && error->code() == 1002; }

    std::string name;
    Ledger before;
    bool streaming = false;  // an abandoned download or recording still takes every notification
    std::shared_ptr<Semaphore> reported;
    int calls = 0;
    MaybeError error;
    bool right = false;
  };

  /// An operation whose end clears whatever command is pending, or whose packets complete it.
  class Clearing {
   public:
    explicit Clearing(HostThread& host);
    ~Clearing();
    Clearing(const Clearing&) = delete;
    Clearing& operator=(const Clearing&) = delete;

   private:
    Ledger& ledger_;
    std::size_t number_;
  };
  using Shared = std::shared_ptr<Report>;

  void completionForm();
  void blockingForm();
  void composite();
  void download();
  void recording();
  void update();

  Shared startUpdate(std::size_t size);
  void awaitUpdate(const Shared& report);
  Shared startRecording(bool refused);
  void queryWhileRecording();
  void stopRecording();
  void checkRecording(std::uint64_t packetsBeforeStop) const;

  Shared begin(const char* name);
  void await(const Shared& report);
  void startAnew();
  void checkDownload(const Report& report, int deletionsBefore);

  /// Nothing that happened since `report` began may have cost it its answer.
  bool undisturbed(const Report& report) const;
  /// Nothing may even have given it another's answer.
  bool calm() const;

  template <class T>
  ValueCompletion<T> into(const Shared& report, std::function<bool(const T&)> right);

  Scene& scene_;
  const std::size_t number_;
  Random random_;
};

}  // namespace kwtsdk::campaign
