#include <cstdlib>

#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

struct Case {
  std::string expected;
  std::string trouble;
  Duration bluez::ConnectOptions::*shortened = nullptr;  // the step that has to run out of time
  std::string whileConnecting = {}, whileDiscovering = {};
};

// Whatever went wrong, the same device connects when it is over.
TEST(BluezProblems, OfAConnection) {
  const std::vector<Case> cases{
      {nameOf(Problem::noAdapter), "adapter off"},
      {nameOf(Problem::adapterOff), "power off"},
      {nameOf(Problem::serviceNotRunning), "end"},
      {nameOf(Problem::deviceNotFound), "adapter off;adapter on;heard off",
       &bluez::ConnectOptions::searching},
      {nameOf(Problem::noConnection), "hold Connect", &bluez::ConnectOptions::connecting},
      {nameOf(Problem::noServices), "resolve off", &bluez::ConnectOptions::discovering},
      {"org.bluez.Error.AuthenticationFailed", "refuse Connect org.bluez.Error.AuthenticationFailed"},
      {nameOf(Problem::connectionLost), "hold Connect", nullptr, "end"},
      {nameOf(Problem::connectionLost), "resolve off", nullptr, "", "end"},
      {nameOf(Problem::connectionLost), "resolve off", nullptr, "", "lose"},
      {nameOf(Problem::adapterOff), "resolve off", nullptr, "", "power off"},
  };
  Host host;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.expected + ": " + each.trouble + " " + each.whileConnecting + each.whileDiscovering);
    host.bluez.obey(each.trouble);
    bluez::ConnectOptions options;
    if (each.shortened != nullptr) options.*each.shortened = 50ms;
    options.onStep = [&](ConnectStep step) {
      if (step == ConnectStep::connecting) host.bluez.obey(each.whileConnecting);
      if (step == ConnectStep::discovering) host.bluez.obey(each.whileDiscovering);
    };
    EXPECT_EQ(nameOf(host.device->connect(options)), each.expected);
    EXPECT_EQ(host.device->peripheral()->state(), PeripheralState::disconnected);
    host.bluez.obey("start;adapter on;power on;heard on;resolve on;release Connect");
    EXPECT_EQ(nameOf(host.device->connect()), "ok");
    host.device->disconnect();
    EXPECT_TRUE(host.journal->await("onDisconnect"));
  }
}

TEST(BluezProblems, OfArguments) {
  Host host;
  for (const char* const address : {"", "recorder", "AA:BB:CC:DD:EE:F", "AA-BB-CC-DD-EE-FF"}) {
    EXPECT_EQ(nameOf(Device::create(host.scheduler, address)->connect()), nameOf(Problem::badArgument));
  }
  EXPECT_EQ(nameOf(host.device->connect({.searching = -1ms, .onStep = {}})), nameOf(Problem::badArgument));
  EXPECT_EQ(nameOf(Device::create(host.scheduler, kRecorderAddress, "hci1")->connect()),
            nameOf(Problem::noAdapter));
  EXPECT_EQ(nameOf(bluez::Scanner::create(host.scheduler)->scan(-1ms).error), nameOf(Problem::badArgument));
  const auto again = [&](auto) { EXPECT_EQ(nameOf(host.device->connect()), nameOf(Problem::badArgument)); };
  EXPECT_EQ(nameOf(host.device->connect({.onStep = again})), "ok");
  host.device->disconnect();
  const auto end = [&](auto) { host.device = nullptr; };
  EXPECT_EQ(nameOf(host.device->connect({.onStep = end})), nameOf(Problem::cancelled));
}

TEST(BluezProblems, OfTheBus) {
  const auto check = [](const Host& host, Problem problem) {
    EXPECT_EQ(nameOf(bluez::Scanner::create(host.scheduler)->scan(1ms).error), nameOf(problem));
    if (problem != Problem::busFailure) {  // which takes its time
      EXPECT_EQ(nameOf(host.device->connect()), nameOf(problem));
    }
  };
  check(Host(PrivateBus::Policy::noMessagesToBluez), Problem::notPermitted);
  Host host;
  host.bluez.obey("end");
  const auto mute = sdbus::createSystemBusConnection("org.bluez");  // nobody serves it
  check(host, Problem::busFailure);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/socket", 1);
  check(host, Problem::busUnreachable);
}

// The thread that connects is waiting; another one gives up.
TEST(BluezProblems, Cancelled) {
  Host host;
  const auto other = host.scheduler->serialQueue("other");
  for (const auto& [trouble, sign] :
       {std::pair("adapter off;adapter on;heard off", "StartDiscovery answered"),
        std::pair("heard on;hold Connect", "Connect"),
        std::pair("release Connect;resolve off", "Connect answered")}) {
    host.bluez.obey(trouble);
    host.journal->take();
    other->async([&host, sign = sign] {
      EXPECT_TRUE(host.journal->await(sign));
      host.device->disconnect();
    });
    EXPECT_EQ(nameOf(host.device->connect()), nameOf(Problem::cancelled)) << sign;
    EXPECT_EQ(host.device->peripheral()->state(), PeripheralState::disconnected);
  }
  host.bluez.obey("resolve on");
  EXPECT_EQ(nameOf(host.device->connect()), "ok");
}

}  // namespace
}  // namespace kwtsdk::testing
