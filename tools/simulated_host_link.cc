#include <utility>

#include <kwtsdk/sim/simulated_recorder.h>

#include "tools/host_link.h"

namespace kwtsdk::tool {
namespace {

class SimulatedHostLink : public HostLink {
 public:
  SimulatedHostLink(std::shared_ptr<Scheduler> scheduler, const std::string& folder)
      : scheduler_(std::move(scheduler)), link_(sim::openSimulatedRecorder(scheduler_, folder).link) {}

  // The link's end waits for its thread, which may be busy with a delay that the script asks for. So it ends
  // on a queue that nobody waits for.
  ~SimulatedHostLink() override {
    link_->disconnect();
    const auto queue = scheduler_->serialQueue("kwt.sim.release");
    queue->async([queue, link = std::exchange(link_, nullptr)] {});
  }

  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade) override { link_->attach(facade); }
  void setOnDisconnect(std::function<void()> onDisconnect) override {
    link_->setOnDisconnect(std::move(onDisconnect));
  }
  void disconnect() override { link_->disconnect(); }

 private:
  const std::shared_ptr<Scheduler> scheduler_;
  std::shared_ptr<sim::SimulatedLink> link_;
};

}  // namespace

std::unique_ptr<HostLink> openSimulatedHostLink(const std::shared_ptr<Scheduler>& scheduler,
                                                const std::string& folder) {
  return std::make_unique<SimulatedHostLink>(scheduler, folder);
}

}  // namespace kwtsdk::tool
