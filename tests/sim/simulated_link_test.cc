#include <gtest/gtest.h>
#include <kwtsdk/sim/seed.h>

#include <algorithm>
#include <sstream>

#include "sim/model/wire.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace std::chrono_literals;

const std::string fileWrite = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004",
                  fileNotify = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003", count = "0182010000",
                  notice = "1382020000", download = "03820c0000000000010000000000000074e8e437",
                  record = "0181010000", stop = "0081010000";

/// A host that writes down its events: " ack", " ack!3" when refused, or the first 8 digits of a
/// notification, each with "@" and the virtual time in ms where the link has a timing.
struct Host {
  explicit Host(LinkTiming timing = {}, const std::string& faults = "",
                std::shared_ptr<VirtualTimeScheduler> virtualTime = VirtualTimeScheduler::create(1))
      : scheduler(std::move(virtualTime)),
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
    if (timed) event.append("@").append(std::to_string((scheduler->now() - began) / 1ms));
    events += " " + event;
    if (onEvent) onEvent(event);
  }
  /// Begins what `request` asks for, with the notifications on.
  void ask(const std::string& request) {
    subscribe();
    write(request);
  }
  void write(const std::string& hex, const std::string& uuid = fileWrite) {
    link->peripheral()->writeValue(toData(hex), link->characteristic(uuid), WriteType::withResponse);
  }
  void subscribe(bool enabled = true) {
    link->peripheral()->setNotifyValue(enabled, link->characteristic(fileNotify));
  }
  /// The events of what `body` does, up to the moment when nothing is under way.
  std::string eventsOf(const std::function<void()>& body) {
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
  std::string events;
  std::function<void(const std::string&)> onEvent;
};

template <class Body>
void forManySeeds(Body body) {
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed < first + 200; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    body(seed, VirtualTimeScheduler::create(seed));
  }
}

TEST(SimulatedLink, AcknowledgesThenNotifiesWhileSubscribed) {
  Host host;
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), " ack");
  EXPECT_EQ(host.eventsOf([&] { host.ask(count); }), " ack 01820800");
  EXPECT_EQ(host.eventsOf([&] { host.subscribe(false), host.write(count); }), " ack");
  EXPECT_EQ(host.eventsOf([&] { host.write(count, fileNotify); }), " ack!3");
  EXPECT_EQ(host.eventsOf([&] { host.write(std::string(2 * 513, '0')); }), " ack!13");
}

TEST(SimulatedLink, KeepsToIntervalsAndLatency) {
  const LinkTiming slots{.connectionInterval = 10ms, .packetsPerInterval = 2};
  Host host(slots);
  // Sent at 0: the subscription and a write; at 10: the other write and an acknowledgement; and so on.
  EXPECT_EQ(host.eventsOf([&] { host.ask(count), host.write(notice); }),
            " ack@10 01820800@20 ack@20 13820400@30");
  Host both({.latency = 3ms, .connectionInterval = 10ms, .packetsPerInterval = 4, .mtu = 23});
  EXPECT_EQ(both.eventsOf([&] { both.ask(std::string(80, '0')); }), " ack@23")
      << "40 bytes go in three parts and one packet that has them executed";
  Host delayed(slots, "write 1 delay 25ms");
  EXPECT_EQ(delayed.eventsOf([&] { delayed.write(count), delayed.write(count); }), " ack@30 ack@40");
}

TEST(SimulatedLink, ServesAWriteAmidAStream) {
  Host host({.connectionInterval = 10ms, .packetsPerInterval = 1, .mtu = 50});
  host.onEvent = [&host](const std::string& event) {
    if (event == "03825c00@30" || event == "03825c00@80") host.write(count);
  };
  const auto events = host.eventsOf([&] { host.ask(download); });
  EXPECT_EQ(std::ranges::count(events, ' '), 5 + (32768 + wire::kPacketData - 1) / wire::kPacketData);
  EXPECT_TRUE(events.starts_with(
      " ack@20 03825c00@30 03825c00@50 ack@60 01820800@70 03825c00@80 03825c00@100 ack@110 01820800@120"));
  EXPECT_EQ(host.link->characteristic(fileNotify)->value()->size(), 47U) << "cut at the MTU";
}

TEST(SimulatedLink, FollowsItsFaults) {
  std::istringstream cases(
      R"(write 1 drop: ack 13820400;write 1 refuse: ack!3 ack 13820400;write 1 corrupt 1: ack ack 13820400;
write 1 duplicate: ack 01820800 01820800 ack 13820400;acknowledgement 1 drop: 01820800 ack 13820400;
acknowledgement 1 refuse: ack!3 01820800 ack 13820400;acknowledgement 2 disconnect: ack 01820800 lost;
notification 1 drop: ack ack 13820400;notification 1 corrupt 0: ack fe820800 ack 13820400;
notification 1 disconnect: ack lost;subscription 1 drop: ack ack;subscription 1 disconnect: lost)");
  for (std::string fault, expected; std::getline(std::getline(cases, fault, ':'), expected, ';');) {
    Host host({}, fault);
    // One after the other, so that the order does not depend on when the second write is asked.
    const auto events = host.eventsOf([&] { host.ask(count), host.link->drain(), host.write(notice); });
    EXPECT_EQ(events, expected) << fault;
  }
}

TEST(SimulatedLink, ALostLinkTakesEverythingWithItAndCanBeMadeAgain) {
  Host host({.latency = 5ms});
  const auto lose = [&host](const std::string& request, Duration after) {
    host.ask(request);
    host.scheduler->sleep(after);
    host.link->disconnect();
    host.link->disconnect();
  };
  EXPECT_EQ(host.eventsOf([&] { lose("0482040001000000d084ef92", 2ms); }), " lost@5");
  EXPECT_EQ(host.store->count(), 1U) << "a deletion that never arrived";
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), "") << "written while disconnected";

  host.link->connect();
  EXPECT_EQ(host.eventsOf([&] { host.write(count); }), " ack@10") << "the subscription is lost too";
  const auto again = host.eventsOf([&] { lose(download, 7ms), host.link->connect(), host.ask(count); });
  EXPECT_EQ(again, " lost@10 ack@17 01820800@17");
  EXPECT_FALSE(host.model->streaming());
}

TEST(SimulatedLink, SendsARecordingAtItsPaceAndServesCommandsInBetween) {
  Host host({.latency = 2ms});
  const auto events = host.eventsOf([&] {
    host.ask(record);
    host.scheduler->sleep(30ms);
    host.write("99ec2a02b20a0001000000000000001003a34083df", "CA2A");
    host.link->drain();
    EXPECT_EQ(host.scheduler->now() - host.began, 34ms) << "drained amid the recording";
    host.scheduler->sleep(600s - 33ms);
    host.write(stop);
  });
  EXPECT_EQ(std::ranges::count(events, ' '), 2 + 1 + 30000 + 3);
  EXPECT_TRUE(events.starts_with(" ack@4 12800400@4 50010300@24 ack@34 50010300@44"));
  EXPECT_TRUE(events.ends_with(" ack@600005 50010300@600005 00800100@600005 08010001@600005"));
}

TEST(SimulatedLink, CatchesUpWithARecordingsPaceButPilesNothingUp) {
  const std::tuple<LinkTiming, const char*, int> cases[]{
      {{}, "notification 3 delay 500ms", 50},
      {{.connectionInterval = 100ms, .packetsPerInterval = 1}, "", 9}};
  for (const auto& [timing, faults, expected] : cases) {
    Host host(timing, faults);
    int packets = 0;
    host.onEvent = [&packets](const std::string& event) { packets += event.starts_with("5001"); };
    const auto events =
        host.eventsOf([&] { host.ask(record), host.scheduler->sleep(1010ms), host.write(stop); });
    EXPECT_NEAR(packets, expected, 1) << faults;
    EXPECT_EQ(events.rfind(" 08010001"), events.rfind(' '));
  }
}

TEST(SimulatedLink, ARecordingEndsWithTheKeyOrTheLinkAndItsTimerWithIt) {
  forManySeeds([](std::uint64_t seed, const auto& scheduler) {
    Host host({}, "", scheduler);
    const auto recordUntil = [&](const std::function<void()>& end) {
      return host.eventsOf([&] {
        host.ask(record);
        scheduler->sleep(50ms + seed % 9 * 1ms);
        end();
        host.link->connect(), host.subscribe();
        scheduler->sleep(20ms);
      });
    };
    EXPECT_EQ(recordUntil([&] { host.model->pressKey(); }), " ack 12800400 50010300 50010300 08010011");
    EXPECT_EQ(recordUntil([&] { host.link->disconnect(); }), " ack 12800400 50010300 50010300 lost");
    EXPECT_LT(scheduler->now(), 1s) << "nothing ran on";
  });
}

TEST(SimulatedLink, CanBeReleasedAtAnyMoment) {
  forManySeeds([](std::uint64_t seed, const auto& scheduler) {
    Host host({.latency = seed % 2 * 1ms},
              "write 2 drop\nnotification 3 delay 1ms\nnotification 400 disconnect", scheduler);
    bool released = false;
    const auto release = [&] { host.link.reset(), released = true; };
    host.onEvent = [&](const std::string&) {
      scheduler->preemptionPoint();
      EXPECT_FALSE(released);
      if (seed % 4 == 0) release();  // inside an event
    };
    const auto peripheral = host.link->peripheral();
    const auto target = host.link->characteristic(fileWrite), source = host.link->characteristic(fileNotify);
    scheduler->run([&] {
      scheduler->spawn("writer", [=] {
        const std::string frames[]{count, download, record};
        for (int i = 0; i < 10; ++i) {
          peripheral->setNotifyValue(true, source);
          peripheral->writeValue(toData(frames[i % 3]), target, WriteType::withResponse);
        }
      });
      scheduler->sleep(Duration(500us) * (seed % 5));
      if (seed % 4 != 0) host.link->connect();
      scheduler->preemptionPoint();
      if (seed % 4 != 0) release();
      scheduler->sleep(10ms);
      EXPECT_EQ(peripheral->state(), PeripheralState::disconnected);
    });
    EXPECT_FALSE(host.model->streaming() || host.model->recording());
  });
}

}  // namespace
}  // namespace kwtsdk::sim
