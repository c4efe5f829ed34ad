#include <kwtsdk/sim/simulated_link.h>

#include <algorithm>
#include <stdexcept>
#include <utility>

#include "sim/link/link_core.h"

namespace kwtsdk::sim {

namespace {

void check(const LinkTiming& timing) {
  if (timing.latency < Duration::zero() || timing.connectionInterval < Duration::zero() ||
      timing.packetsPerInterval == 0 || timing.mtu < LinkTiming::kSmallestMtu ||
      timing.mtu > LinkTiming::kGreatestMtu) {
    throw std::invalid_argument(
        "link timing: durations must not be negative, packetsPerInterval at least 1, mtu 23 to 517");
  }
}

}  // namespace

class SimulatedLink::Impl {
 public:
  explicit Impl(std::shared_ptr<LinkCore> linkCore) : core(std::move(linkCore)) {}

  const std::shared_ptr<LinkCore> core;
};

std::shared_ptr<SimulatedLink> SimulatedLink::create(const std::shared_ptr<Scheduler>& scheduler,
                                                     std::shared_ptr<RecorderModel> model, LinkTiming timing,
                                                     std::shared_ptr<FaultPlan> faults) {
  check(timing);
  model->setLinkMtu(timing.mtu);
  auto core = std::make_shared<LinkCore>(scheduler, std::move(model), timing, std::move(faults));
  return std::shared_ptr<SimulatedLink>(new SimulatedLink(std::make_unique<Impl>(std::move(core))));
}

SimulatedLink::SimulatedLink(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}

SimulatedLink::~SimulatedLink() { impl_->core->close(); }

std::shared_ptr<Peripheral> SimulatedLink::peripheral() const { return impl_->core; }

std::vector<std::shared_ptr<Characteristic>> SimulatedLink::characteristics() const {
  const auto& all = impl_->core->characteristics();
  return {all.begin(), all.end()};
}

std::shared_ptr<Characteristic> SimulatedLink::characteristic(std::string_view uuid) const {
  const auto wanted = Uuid::fromString(uuid);
  const auto& all = impl_->core->characteristics();
  const auto found =
      std::ranges::find_if(all, [&wanted](const auto& candidate) { return candidate->UUID() == wanted; });
  return found == all.end() ? nullptr : *found;
}

void SimulatedLink::setEvents(Event didWrite, Event didUpdate) {
  impl_->core->events().setEvents(std::move(didWrite), std::move(didUpdate));
}

void SimulatedLink::setOnDisconnect(std::function<void()> onDisconnect) {
  impl_->core->events().setOnDisconnect(std::move(onDisconnect));
}

void SimulatedLink::attach(const std::shared_ptr<KWTBluetoothHelper>& facade) {
  impl_->core->events().attach(facade, impl_->core, characteristics());
}

void SimulatedLink::connect() { impl_->core->connect(); }
void SimulatedLink::disconnect() { impl_->core->disconnect(); }
void SimulatedLink::drain() { impl_->core->drain(); }

}  // namespace kwtsdk::sim
