#pragma once

#include "tests/campaign/scene.h"

namespace kwtsdk::campaign {

/// What completes without an error.
inline bool succeeds(const MaybeError& error) { return !error; }

/// One thread of a host: a few random operations, each checked against what it has to report.
class HostThread {
 public:
  HostThread(Scene& scene, std::size_t number, const Choices& choices)
      : scene_(scene), number_(number), random_(choices) {}

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
    explicit Clearing(const HostThread& host) : underWay_(host.scene_.ledger.clearing.at(host.number_)) {
      ++underWay_;
      ++host.scene_.ledger.cleared.at(host.number_);
    }
    ~Clearing() { --underWay_; }
    Clearing(const Clearing&) = delete;
    Clearing& operator=(const Clearing&) = delete;

   private:
    int& underWay_;
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
  void await(const Shared& report, Duration patience = 60s);
  void startAnew();
  void checkDownload(const Report& report, int deletionsBefore);

  /// Nothing that happened since `report` began may have cost it its answer.
  bool undisturbed(const Report& report) const;
  /// Nothing may even have given it another's answer.
  bool calm() const;

  /// A completion of any kind, which `right` judges by what it gets.
  template <class Right>
  auto into(const Shared& report, Right right) {
    return [&scene = scene_, report, right](const MaybeError& error, const auto&... value) {
      report->take(scene.scheduler, error, right(error, value...));
      if (scene.onReport) scene.onReport();
    };
  }

  Scene& scene_;
  const std::size_t number_;
  Choices random_;
};

}  // namespace kwtsdk::campaign
