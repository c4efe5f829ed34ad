#include <gtest/gtest.h>
#include <kwtsdk/sim/memory_store.h>
#include <kwtsdk/sim/scripted_faults.h>
#include <kwtsdk/sim/seed.h>
#include <kwtsdk/sim/seeded_faults.h>
#include <kwtsdk/sim/simulated_link.h>
#include <kwtsdk/sim/virtual_time_scheduler.h>

#include <algorithm>

#include "codec/hex.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace std::chrono_literals;

const std::string fileWrite = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004",
                  fileNotify = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003", count = "0182010000",
                  notice = "1382020000", download = "03820c0000000000010000000000000074e8e437";

/// A host that writes down its events: "ack", "ack!3" when refused, or the first 8 digits of a notification,
/// each with "@" and the virtual time in ms where the link has a timing.
struct Host {
  explicit Host(LinkTiming timing = {}, const std::string& faults = "",
                std::shared_ptr<VirtualTimeScheduler> virtualTime = nullptr)
      : scheduler(virtualTime ? std::move(virtualTime)
                              : VirtualTimeScheduler::create(seedFromEnvironment(1))),
        link(SimulatedLink::create(scheduler, model, timing, ScriptedFaults::fromText(faults))),
        timed(timing.latency + timing.connectionInterval > 0ns) {
    store->add(Bytes(300, 1));
    link->setEvents(
        [this](const auto&, const auto&, const MaybeError& error) {
          note(error ? "ack!" + std::to_string(error->code()) : "ack");
        },
        [this](const auto&, const auto& from, const auto&) { note(hexString(*from->value()).substr(0, 8)); });
    link->setOnDisconnect([this] { note("lost"); });
  }
  void note(std::string event) {
    if (timed) event += "@" + std::to_string((scheduler->now() - began) / 1ms);
    events.push_back(event);
    if (onEvent) onEvent(event);
  }
  void write(const std::string& hex, const std::string& uuid = fileWrite,
             WriteType type = WriteType::withResponse) {
    link->peripheral()->writeValue(toData(hex), link->characteristic(uuid), type);
  }
  void subscribe(bool enabled = true, const std::string& uuid = fileNotify) {
    link->peripheral()->setNotifyValue(enabled, link->characteristic(uuid));
  }
  /// The events of what `body` does, up to the moment when nothing is under way.
  std::vector<std::string> eventsOf(const std::function<void()>& body) {
    events.clear();
    scheduler->run([&] {
      began = scheduler->now();
      body();
      link->drain();
    });
    return events;
  }

  std::shared_ptr<VirtualTimeScheduler> scheduler;
  std::shared_ptr<MemoryStore> store = std::make_shared<MemoryStore>();
  std::shared_ptr<RecorderModel> model = std::make_shared<RecorderModel>(store);
  std::shared_ptr<SimulatedLink> link;
  bool timed;
  Duration began{0};
  std::vector<std::string> events;
  std::function<void(const std::string&)> onEvent;
};

using Events = std::vector<std::string>;

TEST(SimulatedLink, ShowsTheRecordersCharacteristics) {
  const Host host({.mtu = 100});
  const std::pair<const char*, std::uint32_t> expected[]{{"CA2A", 0x08},
                                                         {"C92A", 0x10},
                                                         {"4B1D9E07-53A6-42C8-B7F0-6E2A19820004", 0x08},
                                                         {"4B1D9E07-53A6-42C8-B7F0-6E2A19820003", 0x10},
                                                         {"77777777-7777-7777-7777-777777777777", 0x18}};
  EXPECT_EQ(host.link->characteristics().size(), 5U);
  for (const auto& [uuid, properties] : expected) {
    ASSERT_NE(host.link->characteristic(uuid), nullptr) << uuid;
    EXPECT_EQ(host.link->characteristic(uuid)->properties(), properties) << uuid;
    EXPECT_EQ(host.link->characteristic(uuid)->value(), std::nullopt) << uuid;
  }
  EXPECT_EQ(host.link->characteristic("1234"), nullptr);
  EXPECT_EQ(host.link->characteristic("nonsense"), nullptr);
  EXPECT_EQ(host.link->peripheral()->state(), PeripheralState::connected);
  EXPECT_EQ(host.link->peripheral()->maximumWriteValueLengthForType(WriteType::withoutResponse), 97U);
  EXPECT_EQ(host.link->peripheral()->maximumWriteValueLengthForType(WriteType::withResponse), 512U);
  for (const LinkTiming& bad :
       {LinkTiming{.latency = -1ns}, LinkTiming{.packetsPerInterval = 0}, LinkTiming{.mtu = 22}}) {
    EXPECT_THROW(SimulatedLink::create(host.scheduler, host.model, bad), std::invalid_argument);
  }
}

TEST(SimulatedLink, AcknowledgesThenNotifiesWhileSubscribed) {
  Host host;
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), (Events{"ack"}));
  EXPECT_EQ(host.eventsOf([&] { host.subscribe(), host.write(count); }), (Events{"ack", "01820800"}));
  EXPECT_EQ(host.eventsOf([&] { host.subscribe(false), host.write(count); }), (Events{"ack"}));
  EXPECT_EQ(host.eventsOf([&] {
    host.subscribe(false), host.subscribe(), host.write(count, fileWrite, WriteType::withoutResponse);
  }),
            (Events{"01820800"}));
  EXPECT_EQ(host.eventsOf([&] { host.write(count, fileNotify); }), (Events{"ack!3"}));
  EXPECT_EQ(host.eventsOf([&] { host.write(std::string(2 * 513, '0')); }), (Events{"ack!13"}));
  EXPECT_EQ(host.eventsOf([&] {
    const auto foreign = SimulatedLink::create(host.scheduler, host.model)->characteristic(fileWrite);
    host.link->peripheral()->writeValue(toData(count), foreign, WriteType::withResponse);
  }),
            Events{});
}

TEST(SimulatedLink, KeepsToIntervalsAndLatency) {
  const LinkTiming slots{.connectionInterval = 10ms, .packetsPerInterval = 2};
  Host host(slots);
  // Sent at 0: the subscription and a write; at 10: the other write and an acknowledgement; and so on.
  EXPECT_EQ(host.eventsOf([&] { host.subscribe(), host.write(count), host.write(notice); }),
            (Events{"ack@10", "01820800@20", "ack@20", "13820400@30"}));
  Host distant({.latency = 7ms});
  EXPECT_EQ(distant.eventsOf([&] { distant.subscribe(), distant.write(count), distant.write(notice); }),
            (Events{"ack@14", "01820800@14", "ack@14", "13820400@14"}));
  Host both({.latency = 3ms, .connectionInterval = 10ms, .packetsPerInterval = 4, .mtu = 23});
  EXPECT_EQ(both.eventsOf([&] { both.subscribe(), both.write(std::string(80, '0')); }), (Events{"ack@23"}))
      << "40 bytes go in three parts and one packet that has them executed";
  Host lone({.connectionInterval = 10ms});
  EXPECT_EQ(lone.eventsOf([&] { lone.write(count); }), (Events{"ack@10"}));
  Host delayed(slots, "write 1 delay 25ms");
  EXPECT_EQ(delayed.eventsOf([&] { delayed.write(count), delayed.write(count); }),
            (Events{"ack@30", "ack@40"}));
}

TEST(SimulatedLink, ServesAWriteAmidAStream) {
  Host host({.connectionInterval = 10ms, .packetsPerInterval = 1, .mtu = 99});
  host.onEvent = [&host](const std::string& event) {
    if (event == "03825c00@30" || event == "03825c00@80") host.write(count);
  };
  const auto events = host.eventsOf([&] { host.subscribe(), host.write(download); });
  ASSERT_EQ(events.size(), 396U);
  EXPECT_EQ((Events{events.begin(), events.begin() + 9}),
            (Events{"ack@20", "03825c00@30", "03825c00@50", "ack@60", "01820800@70", "03825c00@80",
                    "03825c00@100", "ack@110", "01820800@120"}));
  host.onEvent = nullptr;
  EXPECT_EQ(host.eventsOf([&] { host.write(download); }).size(), 392U) << "one stream after the other";
}

TEST(SimulatedLink, CutsANotificationAtTheMtu) {
  Host host({.mtu = 50});
  host.eventsOf([&] { host.subscribe(), host.write(download); });
  EXPECT_EQ(host.link->characteristic(fileNotify)->value()->size(), 47U);
}

TEST(SimulatedLink, FollowsItsFaults) {
  const std::pair<const char*, Events> cases[]{
      {"write 1 drop", {"ack", "13820400"}},
      {"write 1 refuse", {"ack!3", "ack", "13820400"}},
      {"write 1 duplicate", {"ack", "01820800", "01820800", "ack", "13820400"}},
      {"write 1 corrupt 1", {"ack", "ack", "13820400"}},
      {"write 1 disconnect", {"lost"}},
      {"acknowledgement 1 drop", {"01820800", "ack", "13820400"}},
      {"acknowledgement 1 refuse", {"ack!3", "01820800", "ack", "13820400"}},
      {"acknowledgement 1 duplicate", {"ack", "ack", "01820800", "ack", "13820400"}},
      {"acknowledgement 2 disconnect", {"ack", "01820800", "lost"}},
      {"notification 1 drop", {"ack", "ack", "13820400"}},
      {"notification 1 corrupt 0", {"ack", "fe820800", "ack", "13820400"}},
      {"notification 2 duplicate", {"ack", "01820800", "ack", "13820400", "13820400"}},
      {"notification 1 disconnect", {"ack", "lost"}},
      {"subscription 1 drop", {"ack", "ack"}},
      {"subscription 1 refuse", {"ack", "ack"}},
      {"subscription 1 disconnect", {"lost"}},
  };
  for (const auto& [script, expected] : cases) {
    Host host({}, script);
    // One after the other, so that the order does not depend on when the second write is asked.
    const auto events = host.eventsOf([&] {
      host.subscribe();
      host.write(count);
      host.link->drain();
      host.write(notice);
    });
    EXPECT_EQ(events, expected) << script;
  }
  Host delayed({.latency = 1ms}, "notification 1 delay 250ms");
  EXPECT_EQ(delayed.eventsOf([&] { delayed.subscribe(), delayed.write(count), delayed.write(notice); }),
            (Events{"ack@2", "01820800@252", "ack@252", "13820400@252"}));
}

TEST(SimulatedLink, ALostLinkTakesEverythingWithItAndCanBeMadeAgain) {
  Host host({.latency = 5ms});
  const auto streamFor = [&host](Duration time) {
    host.subscribe(), host.write(download);
    host.scheduler->sleep(time);
    host.link->disconnect();
    host.link->disconnect();
  };
  EXPECT_EQ(host.eventsOf([&] { streamFor(7ms); }), (Events{"lost@10"}));
  EXPECT_EQ(host.link->peripheral()->state(), PeripheralState::disconnected);
  EXPECT_FALSE(host.model->streaming());
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), Events{}) << "written while disconnected";

  host.link->connect();
  EXPECT_EQ(host.link->peripheral()->state(), PeripheralState::connected);
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), (Events{"ack@10"})) << "the subscription is lost too";
  EXPECT_EQ(host.eventsOf([&] {
    streamFor(7ms);
    host.link->connect();
    host.subscribe(), host.write(count);
  }),
            (Events{"lost@10", "ack@17", "01820800@17"}));
}

TEST(SimulatedLink, NothingOfALostLinkArrives) {
  Host host({.latency = 5ms});
  EXPECT_EQ(host.eventsOf([&] {
    host.write("0482040001000000d084ef92");
    host.scheduler->sleep(2ms);
    host.link->disconnect();
  }),
            (Events{"lost@5"}));
  EXPECT_EQ(host.store->count(), 1U) << "a deletion that never arrived";

  Host twice({}, "acknowledgement 1 duplicate");
  twice.onEvent = [&twice](const std::string&) { twice.link->disconnect(); };
  EXPECT_EQ(twice.eventsOf([&] { twice.write(count); }), (Events{"ack", "lost"}));
}

TEST(SimulatedLink, AStreamAskedForRightAfterTheLossGoesOn) {
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed < first + 100; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    Host host({}, "notification 1 disconnect", VirtualTimeScheduler::create(seed));
    const auto events = host.eventsOf([&] {
      host.subscribe(), host.write(download);
      while (host.link->peripheral()->state() == PeripheralState::connected)
        host.scheduler->preemptionPoint();
      host.link->connect();
      host.subscribe(), host.write(download);
    });
    EXPECT_EQ(std::count(events.begin(), events.end(), "03825c00"), 391);
  }
}

TEST(SimulatedLink, ReconnectsInsideItsDisconnectCallback) {
  Host host({}, "notification 3 disconnect");
  host.onEvent = [&host](const std::string& event) {
    if (event == "lost") host.link->connect(), host.subscribe(), host.write(count);
  };
  const auto events = host.eventsOf([&] { host.subscribe(), host.write(download); });
  EXPECT_EQ(events, (Events{"ack", "03825c00", "03825c00", "lost", "ack", "01820800"}));
}

TEST(SimulatedLink, CanBeReleasedInsideAnEvent) {
  Host host;
  host.onEvent = [&host](const std::string&) { host.link.reset(); };
  const auto peripheral = host.link->peripheral();
  host.scheduler->run([&] {
    host.subscribe();
    host.write(download);
  });
  EXPECT_EQ(host.events, (Events{"ack"}));
  EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
  EXPECT_FALSE(host.model->streaming());
}

/// Under many seeds: links are released, lost and made while several threads and faults are at work.
TEST(SimulatedLink, CanBeReleasedAtAnyMoment) {
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed < first + 200; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    const auto scheduler = VirtualTimeScheduler::create(seed);
    const auto store = std::make_shared<MemoryStore>();
    store->add(Bytes(1));
    const auto model = std::make_shared<RecorderModel>(store);
    scheduler->run([&] {
      auto link = SimulatedLink::create(
          scheduler, model, {.latency = seed % 2 == 0 ? 0ms : 1ms},
          std::make_shared<SeededFaults>(
              seed, FaultRates{.drop = 0.1, .delay = 0.1, .disconnect = 0.01, .longestDelay = 1ms}));
      const auto peripheral = link->peripheral();
      const auto target = link->characteristic(fileWrite), source = link->characteristic(fileNotify);
      auto released = std::make_shared<bool>(false);
      const auto event = [released, scheduler](const auto&, const auto&, const auto&) {
        scheduler->preemptionPoint();
        EXPECT_FALSE(*released);
      };
      link->setEvents(event, event);
      scheduler->spawn("writer", [=] {
        for (int i = 0; i < 10; ++i) {
          peripheral->setNotifyValue(true, source);
          peripheral->writeValue(toData(i % 2 == 0 ? count : download), target, WriteType::withResponse);
        }
      });
      scheduler->sleep(Duration(500us) * (seed % 5));
      link->connect();
      scheduler->preemptionPoint();
      link.reset();
      *released = true;
      EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    });
    EXPECT_FALSE(model->streaming());
  }
}

}  // namespace
}  // namespace kwtsdk::sim
