#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

const Uuid kService = *Uuid::fromString("4B1D9E07-53A6-42C8-B7F0-6E2A19820001");

TEST(BluezScan, FindsWhatIsHeardAndPassesTheFilter) {
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler, "hci0");
  const auto result = scanner->scan(50ms, {{kService}});
  EXPECT_EQ(nameOf(result.error), "ok");
  ASSERT_EQ(result.devices.size(), 1U);
  const auto& found = result.devices[0];
  EXPECT_EQ(std::tuple(found.address, found.name, found.signal.value_or(0), found.services),
            std::tuple(kRecorderAddress, "Recorder", -50, std::vector{kService}));
  EXPECT_TRUE(host.journal->await("StopDiscovery"));
  EXPECT_TRUE(scanner->scan(50ms, {{*Uuid::fromString("C92A")}}).devices.empty());
  host.bluez.obey("heard off");
  EXPECT_TRUE(scanner->scan(50ms).devices.empty());
}

TEST(BluezScan, StopEndsIt) {
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler);
  const auto other = host.scheduler->serialQueue("other");
  other->async([&] {
    EXPECT_TRUE(host.journal->await("StartDiscovery answered"));
    scanner->stop();
  });
  EXPECT_EQ(nameOf(scanner->scan(60min).error), "ok");
}

TEST(BluezScan, EndsWithWhatItStandsOn) {
  Host host;
  const auto scanner = bluez::Scanner::create(host.scheduler);
  const auto other = host.scheduler->serialQueue("other");
  for (const auto& [trouble, problem] :
       {std::pair("adapter off", Problem::noAdapter), std::pair("power off", Problem::adapterOff),
        std::pair("end", Problem::connectionLost)}) {
    host.bluez.obey("power on;adapter on");
    other->async([&, command = trouble] {
      EXPECT_TRUE(host.journal->await("StartDiscovery answered"));
      host.bluez.obey(command);
    });
    const auto result = scanner->scan(60min);
    EXPECT_EQ(nameOf(result.error), nameOf(problem)) << trouble;
    if (problem == Problem::adapterOff) {
      EXPECT_EQ(result.devices.size(), 1U);  // heard before
    }
  }
}

TEST(BluezConnection, CarriesQueriesAndUpdates) {
  Host host;
  std::vector<ConnectStep> steps;
  ASSERT_EQ(nameOf(host.device->connect({.onStep = [&](ConnectStep step) { steps.push_back(step); }})), "ok");
  EXPECT_EQ(steps, (std::vector{ConnectStep::searching, ConnectStep::connecting, ConnectStep::discovering}));
  EXPECT_EQ(host.device->peripheral()->maximumWriteValueLengthForType(WriteType::withResponse), 244U);
  host.device->attach(host.helper);
  EXPECT_EQ(host.helper->getPower(), 87);
  EXPECT_TRUE(host.helper->getFirmwareVersion());
  EXPECT_TRUE(host.helper->getCapacity());

  const TemporaryFolder folder;
  const Bytes image = recordingOf(20000);
  writeFile(folder.file("image"), {image.begin(), image.end()});
  const auto installed = host.scheduler->semaphore("installed");  // by a command that is not answered
  host.model->setFirmwareSlot([installed](const Bytes&) {
    installed->signal();
    return true;
  });
  host.helper->updateFirmware(folder.file("image"), nullptr, host.completion());
  EXPECT_TRUE(host.journal->await("done ok"));
  EXPECT_TRUE(installed->wait(1min));
  EXPECT_TRUE(host.model->installedImage() == image);
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

}  // namespace
}  // namespace kwtsdk::testing
