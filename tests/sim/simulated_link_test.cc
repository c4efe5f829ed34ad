#include <gtest/gtest.h>
#include <kwtsdk/sim/seed.h>

#include <algorithm>
#include <cctype>
#include <sstream>

#include "sim/model/wire.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace testing;

const std::string fileWrite = "4B1D9E07-53A6-42C8-B7F0-6E2A19820004",
                  fileNotify = "4B1D9E07-53A6-42C8-B7F0-6E2A19820003";
const std::map<std::string, std::string> frames{{"count", "0182010000"},
                                                {"notice", "1382020000"},
                                                {"record", "0181010000"},
                                                {"stop", "0081010000"},
                                                {"download", "03820c0000000000010000000000000074e8e437"},
                                                {"delete", "0482040001000000d084ef92"}};

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
  void write(const std::string& hex, const std::string& uuid = fileWrite) {
    link->peripheral()->writeValue(toData(hex), link->characteristic(uuid), WriteType::withResponse);
  }
  /// Does what the words say, at once: a frame is written, a number waits that many ms.
  void act(const std::string& words) {
    std::istringstream steps(words);
    for (std::string step; steps >> step;) {
      if (frames.contains(step)) write(frames.at(step));
      if (step == "on" || step == "off") {
        link->peripheral()->setNotifyValue(step == "on", link->characteristic(fileNotify));
      }
      if (step == "lose") link->disconnect();
      if (step == "connect") link->connect();
      if (step == "drain") link->drain();
      if (step == "key") model->pressKey();
      if (std::isdigit(step[0])) scheduler->sleep(1ms * std::stoi(step));
    }
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
  std::string eventsOf(const std::string& words) {
    return eventsOf([&] { act(words); });
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

TEST(SimulatedLink, KeepsToSubscriptionsAndTiming) {
  const LinkTiming slots{.connectionInterval = 10ms, .packetsPerInterval = 2}, late{.latency = 5ms};
  const std::tuple<LinkTiming, std::string, std::string> cases[]{
      {{}, "count drain on count drain off count", " ack ack 01820800 ack"},
      // Sent at 0: the subscription and a write; at 10: the other write and an acknowledgement; and so on.
      {slots, "on count notice", " ack@10 01820800@20 ack@20 13820400@30"},
      // A deletion that never arrives; what is written while disconnected; the subscription is lost too.
      {late, "on delete 2 lose lose count 8 connect count drain on count",
       " lost@5 ack@20 ack@30 01820800@30"},
      {late, "on download 7 lose lose connect on count", " lost@10 ack@17 01820800@17"}};
  for (const auto& [timing, words, expected] : cases) {
    Host host(timing);
    EXPECT_EQ(host.eventsOf(words), expected) << words;
    EXPECT_TRUE(host.store->count() == 1 && !host.model->streaming());
  }
  Host host({.latency = 3ms, .connectionInterval = 10ms, .packetsPerInterval = 4, .mtu = 23});
  EXPECT_EQ(host.eventsOf([&] { host.act("on"), host.write(std::string(80, '0')); }), " ack@23")
      << "40 bytes go in three parts and one packet that has them executed";
  EXPECT_EQ(host.eventsOf([&] { host.write("00", fileNotify); }).substr(0, 6), " ack!3");
  EXPECT_EQ(host.eventsOf([&] { host.write(std::string(2 * 513, '0')); }).substr(0, 7), " ack!13");
}

TEST(SimulatedLink, FollowsItsFaults) {
  std::istringstream cases(
      R"(write 1 drop: ack 13820400;write 1 refuse: ack!3 ack 13820400;write 1 corrupt 1: ack ack 13820400;
write 1 duplicate: ack 01820800 01820800 ack 13820400;acknowledgement 1 drop: 01820800 ack 13820400;
acknowledgement 1 refuse: ack!3 01820800 ack 13820400;acknowledgement 2 disconnect: ack 01820800 lost;
notification 1 drop: ack ack 13820400;notification 1 corrupt 0: ack fe820800 ack 13820400;
notification 1 disconnect: ack lost;subscription 1 drop: ack ack;subscription 1 disconnect: lost)");
  for (std::string fault, expected; std::getline(std::getline(cases, fault, ':'), expected, ';');) {
    // One after the other, so that the order does not depend on when the second write is asked.
    EXPECT_EQ(Host({}, fault).eventsOf("on count drain notice"), expected) << fault;
  }
  Host delayed({.connectionInterval = 10ms, .packetsPerInterval = 2}, "write 1 delay 25ms");
  EXPECT_EQ(delayed.eventsOf("count count"), " ack@30 ack@40");
  Host losing({}, "acknowledgement 1 duplicate");
  losing.onEvent = [&](const std::string&) { losing.link->disconnect(); };
  EXPECT_EQ(losing.eventsOf("on count"), " ack lost") << "nothing arrives behind the loss";
}

TEST(SimulatedLink, CanBeReleasedAtAnyMoment) {
  const std::uint64_t first = seedFromEnvironment(1);
  for (std::uint64_t seed = first; seed < first + 200; ++seed) {
    SCOPED_TRACE("repeat with KWTSDK_SEED=" + std::to_string(seed));
    const auto scheduler = VirtualTimeScheduler::create(seed);
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
        const std::string said[]{"count", "download", "record"};
        for (int i = 0; i < 10; ++i) {
          peripheral->setNotifyValue(true, source);
          peripheral->writeValue(toData(frames.at(said[i % 3])), target, WriteType::withResponse);
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
  }
}

}  // namespace
}  // namespace kwtsdk::sim
