#pragma once

#include <gtest/gtest.h>

#include <kwtsdk/bluez/device.h>
#include <kwtsdk/bluez/scanner.h>

#include "tests/bluez/fake_bluez.h"
#include "tests/bluez/private_bus.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::testing {

using bluez::ConnectStep;
using bluez::Device;
using bluez::Problem;

inline std::string nameOf(const MaybeError& error) {
  if (!error) return "ok";
  return error->domain() == bluez::kDomain ? "problem " + std::to_string(error->code()) : error->domain();
}
inline std::string nameOf(Problem problem) { return "problem " + std::to_string(static_cast<int>(problem)); }

/// A device on a private bus with the fake BlueZ. The journal also gets its events: "didWrite ERROR",
/// "didUpdate", "onDisconnect".
struct Host {
  explicit Host(PrivateBus::Policy policy = PrivateBus::Policy::open) : bus(policy) {
    model->setBatteryLevel(87);
    bluez.obey("start");
    listen();
  }

  void listen() {
    device->setEvents(
        [this](auto, auto, const MaybeError& error) { journal->add("didWrite " + nameOf(error)); },
        [this](auto, auto, auto) { journal->add("didUpdate"); });
    device->setOnDisconnect([this] { journal->add("onDisconnect"); });
  }

  std::shared_ptr<Characteristic> characteristic(const char* uuid) const {
    for (const auto& each : device->characteristics()) {
      if (each->UUID() == Uuid::fromString(uuid)) return each;
    }
    return nullptr;
  }
  void write() {  // the battery query
    device->peripheral()->writeValue(internal::toData("99EC2A02B20A0001000000000000001003A34083DF"),
                                     characteristic("CA2A"), WriteType::withResponse);
  }
  void after(const std::string& line, std::function<void()> work) const {  // once the journal has it
    other->async([journal = journal, line, work = std::move(work)] {
      EXPECT_TRUE(journal->await(line));
      work();
    });
  }
  /// What the journal has, but for what the recorder told of itself.
  Lines happened() const {
    Lines lines = journal->take();
    std::erase_if(lines, [](const std::string& line) { return line.starts_with("notified"); });
    return lines;
  }
  void ask() {
    setNotify(true);
    write();
    EXPECT_TRUE(journal->await("didUpdate"));
  }
  void setNotify(bool on) { device->peripheral()->setNotifyValue(on, characteristic("C92A")); }

  PrivateBus bus;
  std::shared_ptr<Scheduler> scheduler = threadScheduler();
  std::shared_ptr<Journal> journal = std::make_shared<Journal>(*scheduler);
  std::shared_ptr<sim::MemoryStore> store = std::make_shared<sim::MemoryStore>(10);
  std::shared_ptr<sim::RecorderModel> model = std::make_shared<sim::RecorderModel>(store);
  FakeBluez bluez{*scheduler, sim::SimulatedLink::create(scheduler, model), journal};
  std::shared_ptr<Device> device = Device::create(scheduler, "aa:bb:cc:dd:ee:ff");
  std::shared_ptr<SerialQueue> other = scheduler->serialQueue("other");
};

}  // namespace kwtsdk::testing
