#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

TEST(BluezScan, FindsWhatIsHeardAndPassesTheFilter) {
  const Uuid service = *Uuid::fromString(sim::wire::kRecorderService);
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler, "hci0");
  const auto result = scanner->scan(50ms, {{service}});
  EXPECT_EQ(nameOf(result.error), "ok");
  ASSERT_EQ(result.devices.size(), 1U);
  const auto& found = result.devices[0];
  EXPECT_EQ(std::tuple(found.address, found.name, found.signal.value_or(0), found.services),
            std::tuple(kRecorderAddress, "Recorder", -50, std::vector{service}));
  EXPECT_TRUE(host.journal->await("StopDiscovery"));
  EXPECT_TRUE(scanner->scan(50ms, {{*Uuid::fromString("C92A")}}).devices.empty());
  host.bluez.obey("heard off");
  EXPECT_TRUE(scanner->scan(50ms).devices.empty());
}

TEST(BluezScan, EndsBeforeItsTime) {
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler);
  for (const auto& [command, error] : {std::pair("stop", "ok"), std::pair("adapter off", "problem 4"),
                                       std::pair("power off", "problem 5"), std::pair("end", "problem 9")}) {
    host.bluez.obey("power on;adapter on");
    host.journal->take();
    host.after("StartDiscovery answered", [&, command = std::string(command)] {
      command == "stop" ? scanner->stop() : host.bluez.obey(command);
    });
    const auto result = scanner->scan(60min);
    EXPECT_EQ(nameOf(result.error), error) << command;
    if (command == std::string("power off")) {
      EXPECT_EQ(result.devices.size(), 1U) << command;  // heard before
    }
  }
}

TEST(BluezConnection, CarriesQueries) {
  Host host;
  std::vector<ConnectStep> steps;
  ASSERT_EQ(nameOf(host.device->connect({.onStep = [&](ConnectStep step) { steps.push_back(step); }})), "ok");
  EXPECT_EQ(steps, (std::vector{ConnectStep::searching, ConnectStep::connecting, ConnectStep::discovering}));
  EXPECT_EQ(host.device->peripheral()->maximumWriteValueLengthForType(WriteType::withResponse), 244U);
  host.device->attach(host.helper);
  EXPECT_EQ(host.helper->getPower(), 87);
  EXPECT_TRUE(host.helper->getFirmwareVersion());
  EXPECT_TRUE(host.helper->getCapacity());
  EXPECT_EQ(std::ranges::count(host.journal->take(), "overlap"), 0);
}

TEST(BluezConnection, AWriteWaitsForItsSubscription) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
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
  EXPECT_EQ(lines,
            (std::vector<std::string>{"StartNotify C92A", "StartNotify answered", "WriteValue CA2A",
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
    host.write();
    EXPECT_TRUE(host.journal->await("didWrite ok"));
  }
}

TEST(GattEvents, ADetachedFacadeHasAndHearsNothing) {
  const auto helper = KWTBluetoothHelper::create({nullptr, nullptr, nullptr, std::make_shared<LineLog>()});
  const auto peripheral = std::make_shared<FakePeripheral>(), other = std::make_shared<FakePeripheral>();
  const auto target = FakeHost::make("CA2A", FakeHost::kWrite);
  gatt::EventForwarder events;
  events.attach(helper, peripheral, {target});
  EXPECT_EQ(helper->connectedPeripheral(), peripheral);
  EXPECT_EQ(helper->discoveredCharacteristics().size(), 1U);
  events.detach();
  EXPECT_EQ(helper->connectedPeripheral(), nullptr);
  EXPECT_TRUE(helper->discoveredCharacteristics().empty());
  helper->setCompletionBlock([](auto&&...) { ADD_FAILURE() << "a failed write ends a command"; });
  events.didWrite(peripheral, target, Error("stack", 1, {}));
  events.attach(helper, peripheral, {target});
  helper->setConnectedPeripheral(other);
  events.detach();
  EXPECT_EQ(helper->connectedPeripheral(), other);
}

}  // namespace
}  // namespace kwtsdk::testing
