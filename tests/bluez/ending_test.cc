#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

TEST(BluezLoss, FailsWhatIsQueuedAndIsFollowedByAnotherConnection) {
  Host host;
  std::vector<std::pair<std::string, std::string>> cases{
      {"lose", "start"}, {"power off", "power on"}, {"adapter off", "adapter on"},
      {"end", "start"},  {"bus", "end;start"},      {"disconnect", "start"}};
  if (isAcquirable()) cases.emplace_back("hang up", "start");
  for (const auto& [loss, repair] : cases) {
    SCOPED_TRACE(loss);
    // An answer that is ahead of its acknowledgement is none behind the end.
    const std::string held = isAcquirable() && loss == "disconnect" ? "Ack" : "WriteValue";
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    host.ask();
    host.bluez.obey("hold " + held);
    host.journal->take();
    for (int i = 0; i < 3; ++i) host.write();
    EXPECT_TRUE(host.journal->await(held == "Ack" ? "notified C92A" : "WriteValue CA2A"));
    loss == "bus" ? host.bus.end() : loss == "disconnect" ? host.device->disconnect() : host.bluez.obey(loss);
    EXPECT_TRUE(host.journal->await("onDisconnect"));
    EXPECT_EQ(host.device->peripheral()->state(), PeripheralState::disconnected);
    auto lines = host.happened();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("WriteValue") || line.starts_with("Disconnect") ||
             line.starts_with("StopNotify") ||
             line == "overlap";  // an end does not wait for what is under way
    });
    EXPECT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines.back(), "onDisconnect");
    EXPECT_EQ(std::ranges::count(lines, "didWrite ok"), 0);

    host.write();
    EXPECT_TRUE(host.journal->await("didWrite " + nameOf(Problem::connectionLost)));
    if (loss == "bus") host.bus.start();
    host.bluez.obey(repair + ";release " + held);
    const auto before = host.characteristic("CA2A");
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    EXPECT_EQ(host.characteristic("CA2A"), before);
    host.write();
    EXPECT_TRUE(host.journal->await("didWrite ok"));
  }
  const auto target = host.characteristic("CA2A");
  host.device->disconnect();
  host.bluez.obey("lack CA2A");
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.device->peripheral()->writeValue({1}, target, WriteType::withResponse);  // which is no longer there
  EXPECT_TRUE(host.journal->await("didWrite " + nameOf(Problem::connectionLost)));
}

// Both wait for an event to return; the values were there first.
TEST(BluezLoss, IsToldBehindTheValuesBeforeIt) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  std::size_t longest = 0;  // 514 with the largest ATT MTU
  host.device->setEvents(nullptr, [&, first = true](auto&&, const auto& source, auto&&) mutable {
    longest = std::max(longest, source->value()->size());
    if (std::exchange(first, false)) {
      for (int i = 0; i < 99; ++i) host.bluez.obey("notify C92A 514");
      host.bluez.obey("lose");
    }
    host.journal->add("didUpdate");
  });
  host.setNotify(true);
  host.write();
  EXPECT_TRUE(host.journal->await("onDisconnect"));
  EXPECT_EQ(std::ranges::count(host.journal->take(), "didUpdate"), 100);
  EXPECT_EQ(longest, 514U);
}

// Nothing comes after the end of the device, and BlueZ is told.
TEST(BluezRelease, AtAnyMoment) {
  const std::vector<std::tuple<std::string, std::string, bool>> cases{
      {"didWrite", "release WriteValue", true},
      {"didUpdate", "release WriteValue", true},
      {"didWrite", "lose", false},
      {"onDisconnect", "lose", false},
      {"nowhere", "mtu 100", true},
  };
  for (const auto& [moment, command, connected] : cases) {
    SCOPED_TRACE(moment + " " + command);
    Host host;
    const auto event = [&host, moment = moment](const std::string& name) {
      host.journal->add(name);
      if (name == moment) host.device = nullptr, host.journal->add("ended");
    };
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    host.device->setEvents([event](auto&&...) { event("didWrite"); },
                           [event](auto&&...) { event("didUpdate"); });
    host.device->setOnDisconnect([event] { event("onDisconnect"); });
    const auto peripheral = host.device->peripheral();
    host.bluez.obey("hold WriteValue");
    host.setNotify(true);
    for (int i = 0; i < 4; ++i) host.write();
    EXPECT_TRUE(host.journal->await("WriteValue CA2A"));
    host.bluez.obey(command);
    if (moment == "nowhere") event(moment);
    EXPECT_TRUE(host.journal->await("ended"));
    EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    const auto next = Device::create(host.scheduler, kRecorderAddress);
    EXPECT_EQ(nameOf(next->connect({.onStep = [&](auto) { host.journal->add("step"); }})), "ok");
    const auto lines = host.journal->take();
    if (connected) {  // and the next one waits for the end of this one
      EXPECT_EQ(std::ranges::count(lines, "Disconnect"), 1);
      EXPECT_LT(std::ranges::find(lines, "Disconnect"), std::ranges::find(lines, "step"));
    }
    EXPECT_TRUE(moment != "didWrite" || std::ranges::count(lines, "WriteValue CA2A") == 1);
    for (const auto* const name : {"didWrite", "didUpdate", "onDisconnect"})
      EXPECT_EQ(std::count(std::ranges::find(lines, "ended"), lines.end(), name), 0) << name;
  }
}

// Threads that know nothing of each other; whichever holds the device last ends it.
TEST(BluezRelease, WhileOthersConnectDisconnectWriteAndLose) {
  Host host;
  for (int round = 0; round < 40; ++round) {
    std::vector<std::shared_ptr<SerialQueue>> queues;
    const auto ended = host.scheduler->semaphore("ended");
    const auto often = [&](std::function<void(const std::shared_ptr<Device>&)> work) {
      queues.push_back(host.scheduler->serialQueue("other"));
      queues.back()->async([ended, work, device = host.device] {
        for (int i = 0; i < 8; ++i) work(device);
        ended->signal();
      });
    };
    for (int i = 0; i < 2; ++i) often([](const auto& device) { device->connect(); });
    often([](const auto& device) { device->disconnect(); });
    often([&](const auto&) { host.bluez.obey("lose"); });
    often([](const auto& device) {
      for (const auto& each : device->characteristics()) {
        device->peripheral()->setNotifyValue(true, each);
        device->peripheral()->writeValue({1}, each, WriteType::withResponse);
      }
    });
    host.device = nullptr;
    for (std::size_t i = 0; i < queues.size(); ++i) ASSERT_TRUE(ended->wait(5min));
    queues.clear();
    host.device = Device::create(host.scheduler, kRecorderAddress);
    host.listen();
  }
  EXPECT_EQ(nameOf(host.device->connect()), "ok");
  host.write();
  EXPECT_TRUE(host.journal->await("didWrite ok"));
}

}  // namespace
}  // namespace kwtsdk::testing
