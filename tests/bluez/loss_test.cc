#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

TEST(BluezLoss, FailsWhatIsQueuedAndIsFollowedByAnotherConnection) {
  Host host;
  for (const std::string trouble : {"lose", "power off", "adapter off", "end", "bus", "disconnect"}) {
    SCOPED_TRACE(trouble);
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    host.bluez.obey("hold WriteValue");
    host.journal->take();
    for (int i = 0; i < 3; ++i) host.write();
    EXPECT_TRUE(host.journal->await("WriteValue CA2A"));
    if (trouble == "bus") {
      host.bus.end();
    } else if (trouble == "disconnect") {
      host.device->disconnect();
    } else {
      host.bluez.obey(trouble);
    }
    EXPECT_TRUE(host.journal->await("onDisconnect"));
    EXPECT_EQ(host.device->peripheral()->state(), PeripheralState::disconnected);
    auto lines = host.journal->take();
    std::erase_if(lines, [](const std::string& line) {
      return line.starts_with("WriteValue") || line.starts_with("Disconnect");
    });
    EXPECT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines.back(), "onDisconnect");
    EXPECT_EQ(std::ranges::count(lines, "didWrite ok"), 0);

    host.write();
    EXPECT_TRUE(host.journal->await("didWrite " + nameOf(Problem::connectionLost)));
    if (trouble == "bus") host.bus.start();
    host.bluez.obey("release WriteValue;start;power on;adapter on");
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

TEST(BluezLoss, FacadeAttachedBeforeWorksAfterwards) {
  Host host;
  ASSERT_EQ(nameOf(host.device->connect()), "ok");
  host.device->attach(host.helper);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(host.helper->getPower(), 87);
    host.bluez.obey("lose");
    EXPECT_TRUE(host.journal->await("onDisconnect"));
    EXPECT_EQ(host.helper->getPower(), 0);  // not sent
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
  }
}

}  // namespace
}  // namespace kwtsdk::testing
