#include <filesystem>
#include <mutex>
#include <utility>

#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/samples/microphones.h"
#include "tools/host_link.h"

namespace kwtsdk::tool {
namespace {

/// The folder's device/microphone.wav, or else the melody of the sample recordings.
std::shared_ptr<sim::Microphone> microphoneIn(const std::filesystem::path& folder) {
  const auto wav = folder / "device" / "microphone.wav";
  return std::filesystem::exists(wav) ? sim::microphoneOf(wav) : sim::melodyMicrophone();
}

std::shared_ptr<sim::SimulatedLink> open(const std::shared_ptr<Scheduler>& scheduler,
                                         const std::filesystem::path& folder) {
  const auto recorder = sim::openSimulatedRecorder(scheduler, folder);
  recorder.model->setMicrophone(microphoneIn(folder));
  return recorder.link;
}

/// Outlives the link's owner, since the link's thread may.
class Observation {
 public:
  void set(HostLink::NotificationObserver observer) {
    const std::lock_guard lock(mutex_);
    observer_.swap(observer);
  }
  void show(const Characteristic& characteristic) {
    std::unique_lock lock(mutex_);
    const auto observer = observer_;
    lock.unlock();
    const auto value = characteristic.value();
    if (observer && value) observer(*value);
  }

 private:
  std::mutex mutex_;
  HostLink::NotificationObserver observer_;
};

class SimulatedHostLink : public HostLink {
 public:
  SimulatedHostLink(std::shared_ptr<Scheduler> scheduler, const std::string& folder)
      : scheduler_(std::move(scheduler)), link_(open(scheduler_, folder)) {}

  // The link's end waits for its thread, which may be busy with a delay that the script asks for. So it ends
  // on a queue that nobody waits for.
  ~SimulatedHostLink() override {
    link_->disconnect();
    const auto queue = scheduler_->serialQueue("kwt.sim.release");
    queue->async([queue, link = std::exchange(link_, nullptr)] {});
  }

  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) override {
    facade->setConnectedPeripheral(link_->peripheral());
    for (const auto& characteristic : link_->characteristics())
      facade->addDiscoveredCharacteristic(characteristic);
    link_->setEvents(facade->didWriteValueForCharacteristicBlock(),
                     [observation = observation_, forward = facade->didUpdateValueForCharacteristicBlock()](
                         const auto& peripheral, const auto& characteristic, const MaybeError& error) {
                       observation->show(*characteristic);
                       forward(peripheral, characteristic, error);
                     });
  }
  void setOnNotification(NotificationObserver onNotification) override {
    observation_->set(std::move(onNotification));
  }
  void setOnDisconnect(std::function<void()> onDisconnect) override {
    link_->setOnDisconnect(std::move(onDisconnect));
  }
  void disconnect() override { link_->disconnect(); }

 private:
  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<Observation> observation_ = std::make_shared<Observation>();
  std::shared_ptr<sim::SimulatedLink> link_;
};

}  // namespace

std::unique_ptr<HostLink> openSimulatedHostLink(const std::shared_ptr<Scheduler>& scheduler,
                                                const std::string& folder) {
  return std::make_unique<SimulatedHostLink>(scheduler, folder);
}

}  // namespace kwtsdk::tool
