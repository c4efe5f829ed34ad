#pragma once

#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/export.h>
#include <kwtsdk/peripheral.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/fault_plan.h>
#include <kwtsdk/sim/link_timing.h>
#include <kwtsdk/sim/recorder_model.h>

namespace kwtsdk::sim {

/// The radio between a host and a simulated recorder, and the thread ("kwt.sim.link") on which the host gets
/// its events: writes, subscriptions, acknowledgements and notifications pass it one by one, in order. Unless
/// said otherwise, every member may be called on any thread, also inside an event.
///
/// Events hold whatever the host put into them; the facade's ready-made blocks hold the facade weakly, so a
/// facade that holds the peripheral and a link that holds the blocks are no cycle. Events must not throw.
class KWTSDK_EXPORT SimulatedLink {
 public:
  /// A connected link. Without `faults` nothing goes wrong. A plan must not be shared by two links. Throws
  /// std::invalid_argument for a timing that no link can have.
  static std::shared_ptr<SimulatedLink> create(const std::shared_ptr<Scheduler>& scheduler,
                                               std::shared_ptr<RecorderModel> model, LinkTiming timing = {},
                                               std::shared_ptr<FaultPlan> faults = nullptr);

  /// Disconnects. Waits for an event that is running on another thread; none begins after this, and
  /// onDisconnect is not called. The peripheral stays valid and disconnected.
  ~SimulatedLink();
  SimulatedLink(const SimulatedLink&) = delete;
  SimulatedLink& operator=(const SimulatedLink&) = delete;

  std::shared_ptr<Peripheral> peripheral() const;
  std::vector<std::shared_ptr<Characteristic>> characteristics() const;

  /// Null when the recorder has none of this UUID.
  std::shared_ptr<Characteristic> characteristic(std::string_view uuid) const;

  using Event = KWTBluetoothHelper::PeripheralEvent;
  void setEvents(Event didWrite, Event didUpdate);

  /// Called after the link was lost, by disconnect() or a fault; connect() may be called inside.
  void setOnDisconnect(std::function<void()> onDisconnect);

  /// All that a host does after discovery: hands the peripheral and its characteristics to the facade and
  /// forwards the events to it.
  void attach(const std::shared_ptr<KWTBluetoothHelper>& facade);

  /// Loses the link: what is under way is discarded, subscriptions and streams end.
  void disconnect();
  void connect();

  /// Blocks until nothing is under way, downloads included. Does not wait for a recording to end: between two
  /// of its packets nothing is under way. Not inside an event.
  void drain();

 private:
  class Impl;
  explicit SimulatedLink(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::sim
