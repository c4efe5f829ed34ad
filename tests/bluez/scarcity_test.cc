#include "tests/scarcity/scarcity.h"

#include <new>

#include "tests/bluez/host.h"

namespace kwtsdk::testing {
namespace {

/// One connection and one query, with one refusal. Returns how many requests there were.
std::uint64_t connectAndAsk(Host& host, const Scarcity& scarcity) {
  const auto told = host.scheduler->semaphore("told");
  const auto tell = [told](auto&&...) {
    const Counting spared(false);
    told->signal();
  };
  host.device = Device::create(scarceScheduler(host.scheduler), kRecorderAddress);
  host.device->setEvents(nullptr, tell);
  host.device->setOnDisconnect(tell);
  scarcity.begin("adapter");
  try {
    bool isConnected = false;
    {
      const Counting counts;
      isConnected = !host.device->connect();
      if (isConnected) host.setNotify(true);
      if (isConnected) host.write();
    }
    EXPECT_TRUE(!isConnected || told->wait(20s));
  } catch (const std::bad_alloc&) {  // on this thread, before anything has begun
    EXPECT_NE(scarcity.at, 0);
  }
  return Scarcity::end();
}

TEST(BluezScarcity, OfMemoryEndsAConnectionAtMost) {
  Host host;
  for (std::uint64_t at = 0, requests = 0; at <= requests; ++at) {
    SCOPED_TRACE("request " + std::to_string(at));
    requests = std::max(requests, connectAndAsk(host, {Scarcity::Of::memory, at}));
    host.device->disconnect();  // or it is being lost just now
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    host.listen();
    host.ask();
  }
}

}  // namespace
}  // namespace kwtsdk::testing
