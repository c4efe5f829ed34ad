#include "tests/scarcity/scarcity.h"

#include <new>

#include "tests/bluez/host.h"
#include "tests/support/forwarding_scheduler.h"

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

/// Says when the adapter's thread has ended.
struct EndingScheduler : ForwardingScheduler {
  EndingScheduler() : ForwardingScheduler(scarceScheduler(threadScheduler())) {}
  std::shared_ptr<SerialQueue> serialQueue(const std::string& label) override {
    auto real = ForwardingScheduler::serialQueue(label);
    auto* const queue = real.get();
    if (label != "kwt.bluez") return real;
    return {queue, [real = std::move(real), ended = ended](auto*) mutable {
              real = nullptr;
              ended->signal();
            }};
  }

  const std::shared_ptr<Semaphore> ended = semaphore("ended");
};

TEST(BluezScarcity, OfMemoryLeavesNothingOfADeviceThatAnEventReleases) {
  Host host;
  for (std::uint64_t at = 0, requests = 0; at <= requests; ++at) {
    SCOPED_TRACE("request " + std::to_string(at));
    const auto scheduler = std::make_shared<EndingScheduler>();
    host.device = Device::create(scheduler, kRecorderAddress);
    ASSERT_EQ(nameOf(host.device->connect()), "ok");
    host.device->setEvents(nullptr, [&](auto&&...) {
      Scarcity{Scarcity::Of::memory, at}.begin("release");
      host.device = nullptr;
    });
    host.setNotify(true);
    host.write();
    ASSERT_TRUE(scheduler->ended->wait(20s));
    requests = std::max(requests, Scarcity::end());
  }
}

}  // namespace
}  // namespace kwtsdk::testing
