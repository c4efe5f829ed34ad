#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

TEST(BluezScan, PassesTheFilterAndEndsBeforeItsTime) {
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler, "hci0");
  const Uuid service = *Uuid::fromString(sim::wire::kRecorderService);
  const auto found = scanner->scan(50ms, {{service}}).devices;
  ASSERT_EQ(found.size(), 1U);
  EXPECT_EQ(found[0].services, std::vector{service});
  EXPECT_TRUE(host.journal->await("StopDiscovery"));
  EXPECT_TRUE(scanner->scan(50ms, {{*Uuid::fromString("C92A")}}).devices.empty());
  const std::pair<std::string, const char*> cases[]{
      {"stop", "ok"}, {"adapter off", "problem 4"}, {"power off", "problem 5"}, {"end", "problem 9"}};
  for (const auto& [command, error] : cases) {
    host.bluez.obey("power on;adapter on");
    host.journal->take();
    host.after("StartDiscovery answered",
               [&, command = command] { command == "stop" ? scanner->stop() : host.bluez.obey(command); });
    const auto result = scanner->scan(60min);
    EXPECT_EQ(nameOf(result.error), error) << command;
    EXPECT_TRUE(command != "power off" || result.devices.size() == 1) << "heard before";
  }
}

TEST(BluezConnection, AWriteWaitsForItsSubscription) {
  Host host;
  std::vector<ConnectStep> steps;
  ASSERT_EQ(nameOf(host.device->connect({.onStep = [&](ConnectStep step) { steps.push_back(step); }})), "ok");
  EXPECT_EQ(steps, (std::vector{ConnectStep::searching, ConnectStep::connecting, ConnectStep::discovering}));
  EXPECT_EQ(host.device->peripheral()->maximumWriteValueLengthForType(WriteType::withResponse), 244U);
  host.bluez.obey("hold StartNotify");
  host.journal->take();
  host.setNotify(true);
  host.write();
  host.setNotify(false);
  EXPECT_TRUE(host.journal->await("StartNotify C92A"));
  host.bluez.obey("release StartNotify");
  EXPECT_TRUE(host.journal->await("StopNotify answered"));
  auto lines = host.journal->take();
  std::erase(lines, "didWrite ok");
  EXPECT_EQ(lines, (Lines{"StartNotify C92A", "StartNotify answered", "WriteValue CA2A",
                          "WriteValue answered", "StopNotify C92A", "StopNotify answered"}));
}

TEST(BluezConnection, RefusalsKeepTheirNames) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  for (const std::string method : {"WriteValue", "StartNotify"}) {
    for (const std::string error : {"NotPermitted", "Failed", "InProgress", "InvalidValueLength"}) {
      host.bluez.obey("refuse " + method + " org.bluez.Error." + error);
      host.setNotify(true);
      host.write();
      EXPECT_TRUE(host.journal->await("didWrite org.bluez.Error." + error)) << method;
      host.bluez.obey("release " + method);
    }
  }
}

TEST(GattEvents, ADetachedFacadeHasAndHearsNothing) {
  const FakeHost host;
  const auto& [helper, peripheral] = std::tie(host.helper, host.peripheral);
  gatt::EventForwarder events;
  events.attach(helper, peripheral, {host.statusWrite});
  events.detach();
  EXPECT_EQ(helper->connectedPeripheral(), nullptr);
  EXPECT_TRUE(helper->discoveredCharacteristics().empty());
  helper->setCompletionBlock([](auto&&...) { ADD_FAILURE() << "a failed write ends a command"; });
  events.didWrite(peripheral, host.statusWrite, Error("stack", 1, {}));
  events.attach(helper, peripheral, {host.statusWrite});
  const auto other = std::make_shared<FakePeripheral>();
  helper->setConnectedPeripheral(other);
  events.detach();
  EXPECT_EQ(helper->connectedPeripheral(), other);
}

}  // namespace
}  // namespace kwtsdk::testing
