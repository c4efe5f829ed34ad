#include <filesystem>
#include <utility>

#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/link/ending_elsewhere.h"
#include "sim/samples/microphones.h"
#include "tools/host_link.h"
#include "tools/observation.h"

namespace kwtsdk::tool {
namespace {

std::shared_ptr<sim::SimulatedLink> open(const std::shared_ptr<Scheduler>& scheduler,
                                         const std::filesystem::path& folder) {
  const auto recorder = sim::openSimulatedRecorder(scheduler, folder);
  recorder.model->setMicrophone(sim::microphoneIn(folder));
  return sim::endingElsewhere(scheduler, recorder.link);
}

class SimulatedHostLink : public HostLink {
 public:
  explicit SimulatedHostLink(std::shared_ptr<sim::SimulatedLink> link) : link_(std::move(link)) {}
  ~SimulatedHostLink() override { link_->disconnect(); }

  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) override {
    facade->setConnectedPeripheral(link_->peripheral());
    for (const auto& characteristic : link_->characteristics())
      facade->addDiscoveredCharacteristic(characteristic);
    link_->setEvents(facade->didWriteValueForCharacteristicBlock(),
                     Observation::before(observation_, facade->didUpdateValueForCharacteristicBlock()));
  }
  void setOnNotification(NotificationObserver onNotification) override {
    observation_->set(std::move(onNotification));
  }
  void setOnDisconnect(std::function<void()> onDisconnect) override {
    link_->setOnDisconnect(std::move(onDisconnect));
  }
  void disconnect() override { link_->disconnect(); }

 private:
  const std::shared_ptr<Observation> observation_ = std::make_shared<Observation>();
  const std::shared_ptr<sim::SimulatedLink> link_;
};

}  // namespace

std::unique_ptr<HostLink> openSimulatedHostLink(const std::shared_ptr<Scheduler>& scheduler,
                                                const std::string& folder) {
  return std::make_unique<SimulatedHostLink>(open(scheduler, folder));
}

}  // namespace kwtsdk::tool
