#include <atomic>

#include "tests/bluez/host.h"
#include "tests/support/forwarding_scheduler.h"

namespace kwtsdk::testing {
namespace {

struct Case {
  std::string expected, before;
  Duration bluez::ConnectOptions::*shortened = nullptr;  // the step that has to run out of time
  std::string sign = {}, then = {};                      // on another thread, while the first one waits
};

// Whatever went wrong, the same device connects when it is over.
TEST(BluezProblems, OfAConnection) {
  using Options = bluez::ConnectOptions;
  const std::string unknown = "adapter off;adapter on;heard off";
  const std::vector<Case> cases{
      {nameOf(Problem::noAdapter), "adapter off"},
      {nameOf(Problem::adapterOff), "power off"},
      {nameOf(Problem::serviceNotRunning), "end"},
      {nameOf(Problem::deviceNotFound), unknown, &Options::searching},
      {nameOf(Problem::noConnection), "hold Connect", &Options::connecting},
      {nameOf(Problem::noServices), "resolve off", &Options::discovering},
      {"org.bluez.Error.Refused", "refuse Connect org.bluez.Error.Refused"},
      {nameOf(Problem::connectionLost), "hold Connect", nullptr, "Connect", "end"},
      {nameOf(Problem::connectionLost), "resolve off", nullptr, "Connect answered", "end"},
      {nameOf(Problem::connectionLost), "resolve off", nullptr, "Connect answered", "lose"},
      {nameOf(Problem::adapterOff), "resolve off", nullptr, "Connect answered", "power off"},
      {nameOf(Problem::cancelled), unknown, nullptr, "StartDiscovery answered", "disconnect"},
      {nameOf(Problem::cancelled), "hold Connect", nullptr, "Connect", "disconnect"},
      {nameOf(Problem::cancelled), "resolve off", nullptr, "Connect answered", "disconnect"},
  };
  Host host;
  for (const auto& each : cases) {
    SCOPED_TRACE(each.expected + ": " + each.before + " " + each.then);
    host.bluez.obey(each.before);
    host.journal->take();
    if (!each.then.empty()) {
      host.after(each.sign,
                 [&] { each.then == "disconnect" ? host.device->disconnect() : host.bluez.obey(each.then); });
    }
    Options options;
    if (each.shortened != nullptr) options.*each.shortened = 50ms;
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
  for (const char* const address : {"", "recorder", "AA:BB:CC:DD:EE:F"})
    EXPECT_EQ(nameOf(Device::create(host.scheduler, address)->connect()), nameOf(Problem::badArgument));
  EXPECT_EQ(nameOf(Device::create(host.scheduler, kRecorderAddress, "hci1")->connect()),
            nameOf(Problem::noAdapter));
  const auto again = [&](auto) { EXPECT_EQ(nameOf(host.device->connect()), nameOf(Problem::badArgument)); };
  EXPECT_EQ(nameOf(host.device->connect({.onStep = again})), "ok");
  host.device->disconnect();
  const auto end = [&](auto) { host.device = nullptr; };
  EXPECT_EQ(nameOf(host.device->connect({.onStep = end})), nameOf(Problem::cancelled));
}

/// Real threads, and a clock that the test moves. One that is hasty waits a thousandth of the time for the
/// bus to open.
class MovedScheduler : public ForwardingScheduler {
 public:
  explicit MovedScheduler(bool isHasty = false) : ForwardingScheduler(threadScheduler()), isHasty_(isHasty) {}

  void move(Duration by) { moved_ = moved_.load() + by; }

  Duration now() const override { return ForwardingScheduler::now() + moved_.load(); }
  std::shared_ptr<Semaphore> semaphore(const std::string& name) override {
    auto real = ForwardingScheduler::semaphore(name);
    if (isHasty_ && name == "kwt.bluez.open") return std::make_shared<Hasty>(std::move(real));
    return real;
  }

 private:
  struct Hasty : Semaphore {
    explicit Hasty(std::shared_ptr<Semaphore> its) : real(std::move(its)) {}
    void signal() override { real->signal(); }
    bool wait(std::optional<Duration> timeout) override { return real->wait(*timeout / 1000); }
    const std::shared_ptr<Semaphore> real;
  };

  const bool isHasty_;
  std::atomic<Duration> moved_ = Duration::zero();
};

TEST(BluezProblems, OfTheBus) {
  const auto check = [](const Host& host, Problem problem) {
    EXPECT_EQ(nameOf(bluez::Scanner::create(host.scheduler)->scan(1ms).error), nameOf(problem));
    if (problem == Problem::busFailure) return;  // which takes its time
    EXPECT_EQ(nameOf(host.device->connect()), nameOf(problem));
  };
  check(Host(PrivateBus::Policy::noMessagesToBluez), Problem::notPermitted);
  Host host;
  host.bluez.obey("end");
  const auto mute = sdbus::createSystemBusConnection("org.bluez");  // nobody serves it
  check(host, Problem::busFailure);
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere/socket", 1);
  check(host, Problem::busUnreachable);
}

// The D-Bus library would wait for 90 s.
TEST(BluezProblems, OfABusThatHangs) {
  Host host;
  const auto clock = std::make_shared<MovedScheduler>(true);
  host.bus.hang(true);
  EXPECT_EQ(nameOf(bluez::Scanner::create(clock)->scan(1ms).error), nameOf(Problem::busFailure));
  EXPECT_EQ(nameOf(Device::create(clock, kRecorderAddress)->connect()), nameOf(Problem::busFailure));
  host.bus.hang(false);
  EXPECT_EQ(nameOf(host.device->connect()), "ok");
}

// BlueZ is still busy with the write, so the link is ended.
TEST(BluezProblems, OfAWriteThatIsNeverAnswered) {
  Host host;
  const auto clock = std::make_shared<MovedScheduler>();
  host.device = Device::create(clock, kRecorderAddress);
  host.listen();
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.bluez.obey("hold WriteValue");
  host.write();
  EXPECT_TRUE(host.journal->await("WriteValue CA2A"));
  clock->move(39s);
  host.setNotify(true);  // has it look at the clock
  EXPECT_EQ(nameOf(host.device->connect()), "ok");
  EXPECT_EQ(std::ranges::count(host.journal->take(), "didWrite problem 9"), 0);
  clock->move(2s);
  host.setNotify(true);
  for (const auto* const line : {"didWrite problem 9", "onDisconnect"})
    EXPECT_TRUE(host.journal->await(line));
  host.bluez.obey("release WriteValue");
  EXPECT_EQ(nameOf(host.device->connect()), "ok");
  host.write();
  EXPECT_TRUE(host.journal->await("didWrite ok"));
}

}  // namespace
}  // namespace kwtsdk::testing
