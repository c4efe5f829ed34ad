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

TEST(BluezConnection, AWriteWaitsForItsSubscriptionWhichIsKept) {
  Host host;
  std::vector<ConnectStep> steps;
  ASSERT_EQ(nameOf(host.device->connect({.onStep = [&](ConnectStep step) { steps.push_back(step); }})), "ok");
  EXPECT_EQ(steps, (std::vector{ConnectStep::searching, ConnectStep::connecting, ConnectStep::discovering}));
  EXPECT_EQ(host.device->peripheral()->maximumWriteValueLengthForType(WriteType::withResponse), 244U);
  const std::string on = isAcquirable() ? "AcquireNotify" : "StartNotify";
  host.bluez.obey("hold " + on);
  host.journal->take();
  host.setNotify(true);
  host.write();
  EXPECT_TRUE(host.journal->await(on + " C92A"));
  host.bluez.obey("release " + on);
  EXPECT_TRUE(host.journal->await("didUpdate"));
  const Lines round{"WriteValue CA2A", "WriteValue answered", "didWrite ok", "didUpdate"};
  Lines expected{on + " C92A", on + " answered"};
  expected.insert(expected.end(), round.begin(), round.end());
  EXPECT_EQ(host.happened(), expected);
  for (int i = 0; i < 100; ++i) host.setNotify(false);
  host.write();  // whose answer is hidden; it comes before the acknowledgement of the next
  host.device->peripheral()->writeValue({1}, host.characteristic("CA2A"), WriteType::withResponse);
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(host.journal->await("didWrite ok"));
  EXPECT_EQ(std::ranges::count(host.happened(), "didUpdate"), 0);
  host.ask();
  EXPECT_EQ(host.happened(), round);
  host.device->disconnect();
  EXPECT_TRUE(host.journal->await("onDisconnect"));
  const auto end = host.journal->take();
  EXPECT_EQ(std::ranges::count(end, "StopNotify C92A"), isAcquirable() ? 0 : 1);
}

// Through a descriptor: it waits for an event to return, and is no answer to what is asked then.
TEST(BluezConnection, WhatCameWhileItWasOffIsNotTold) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.device->setEvents([&](auto&&...) { host.journal->add("didWrite"); },
                         [&, first = true](auto&&...) mutable {
                           host.journal->add("didUpdate");
                           if (!std::exchange(first, false)) return;
                           host.setNotify(false);
                           host.bluez.obey("notify C92A 20");
                           host.setNotify(true);
                           host.bluez.obey("read C92A");
                           host.setNotify(true);
                           host.write();
                         });
  host.setNotify(true);
  host.write();
  const Lines round{"WriteValue CA2A", "WriteValue answered", "didWrite", "didUpdate"};
  for (int i = 0; i < 2; ++i) EXPECT_TRUE(host.journal->await("didUpdate"));
  auto lines = host.happened();
  lines.erase(lines.begin(), std::ranges::find(lines, "didUpdate") + 1);
  EXPECT_EQ(lines, round);
}

// The acknowledgement, which comes another way, stays behind; the host sees the order on the air.
TEST(BluezConnection, AnAnswerThatOvertakesItsAcknowledgementIsHeld) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.setNotify(true);
  const std::string error = "org.bluez.Error.Failed";  // behind which nothing is an answer to what follows
  const std::pair<std::string, Lines> cases[]{
      {"release Ack", {"didWrite ok", "didUpdate", "didWrite ok", "didUpdate"}},  // the second, too
      {"refuse Ack " + error, {"didUpdate", "didWrite " + error}}};
  for (const auto& [command, told] : cases) {
    host.bluez.obey("hold Ack");
    for (std::size_t i = 0; i < told.size(); i += 2) host.write();
    EXPECT_TRUE(host.journal->await("notified C92A"));
    host.bluez.obey(command);
    for (const auto& line : told) EXPECT_TRUE(host.journal->await(line)) << line;
  }
}

TEST(BluezConnection, RefusalsKeepTheirNames) {
  Host host;
  for (const std::string method : {"WriteValue", "StartNotify"}) {
    for (const std::string error : {"NotPermitted", "Failed", "InProgress", "InvalidValueLength"}) {
      ASSERT_EQ(nameOf(host.device->connect()), "ok");
      host.bluez.obey("refuse AcquireNotify org.bluez.Error.NotPermitted");  // another program has it
      host.bluez.obey("refuse " + method + " org.bluez.Error." + error);
      host.setNotify(true);
      host.write();
      EXPECT_TRUE(host.journal->await("didWrite org.bluez.Error." + error)) << method;
      host.bluez.obey("release " + method);
      host.ask();
      host.device->disconnect();
      EXPECT_TRUE(host.journal->await("onDisconnect"));
    }
  }
}

// It may carry what a killed program has begun.
TEST(BluezConnection, OneThatIsThereIsEndedFirst) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.ask();
  host.journal->take();
  const auto next = Device::create(host.scheduler, kRecorderAddress);
  ASSERT_EQ(nameOf(next->connect()), "ok");
  EXPECT_TRUE(host.journal->await("onDisconnect"));
  const auto lines = host.journal->take();
  EXPECT_LT(std::ranges::find(lines, "Disconnect"), std::ranges::find(lines, "Connect"));
  EXPECT_EQ(next->peripheral()->state(), PeripheralState::connected);
}

// Those are not announced with the next connection, as the others are.
TEST(BluezConnection, CharacteristicsThatBluezKeptAreFound) {
  Host host;
  host.bluez.obey("keep C92A");
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.device->disconnect();
  EXPECT_TRUE(host.journal->await("onDisconnect"));
  host.device = Device::create(host.scheduler, kRecorderAddress);
  host.listen();
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.ask();
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
