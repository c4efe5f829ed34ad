#pragma once

#include <functional>
#include <memory>
#include <string>

#include "tests/bluez/event_loop.h"
#include "tests/bluez/fake_service.h"

namespace kwtsdk::testing {

/// A fake bluetoothd on the system bus with a simulated recorder in reach. As BlueZ does, it knows a device
/// after a discovery heard it, refuses a second operation on the same characteristic while one is under way,
/// and passes notifications on between StartNotify and StopNotify.
class FakeBluez {
 public:
  /// Not started yet. Nobody else may hold the link when this ends.
  FakeBluez(Scheduler& scheduler, std::shared_ptr<sim::SimulatedLink> link, std::shared_ptr<Journal> journal);
  ~FakeBluez();
  FakeBluez(const FakeBluez&) = delete;
  FakeBluez& operator=(const FakeBluez&) = delete;

  /// Commands separated by ";", done when this returns. Throws std::exception.
  ///   start | end                       of the service
  ///   adapter on|off   power on|off     the adapter is there, has power
  ///   heard on|off                      the recorder is in reach
  ///   resolve on|off                    its services become known
  ///   mtu N | lack UUID-PART
  ///   refuse METHOD ERROR | hold METHOD | release METHOD
  ///   lose                              the connection
  void obey(const std::string& commands);

 private:
  void obeyOne(const std::string& command);
  void postToService(std::function<void(FakeService&)> work);

  std::shared_ptr<sim::SimulatedLink> link_;
  const std::shared_ptr<Journal> journal_;
  FakeState state_;
  std::unique_ptr<FakeService> service_;
  EventLoop loop_;  // last, so that its thread ends first
};

}  // namespace kwtsdk::testing
