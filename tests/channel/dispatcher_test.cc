#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk::testing {
namespace {

/// A host whose commands' outcomes are written down.
struct Dispatched : FakeHost {
  void send(std::int64_t type = 3, const char* uuid = wire::CHARACTERISTIC_WRITE, const Bytes& frame = {1}) {
    helper->sendCommand(frame, uuid, type, into(outcomes));
  }
  Lines taken() { return std::exchange(outcomes, {}); }

  Lines outcomes;
};

TEST(Dispatcher, RefusesInAFixedOrder) {
  Dispatched host;
  const auto send = [&](const char* uuid = "C92A") { host.send(11, uuid, {2}); };
  host.send();
  host.peripheral->current = PeripheralState::disconnecting;
  send();
  host.helper->sendCommand({2}, "C92A", 11, nullptr);
  host.helper->setCompletionBlock(nullptr);
  send();
  host.helper->setConnectedPeripheral(nullptr);
  send();
  host.helper->setConnectedPeripheral(host.peripheral);
  host.peripheral->current = PeripheralState::connected;
  for (const char* uuid : {"C92A", "1234", "no uuid"}) send(uuid);
  const std::string lost = "1001 蓝牙断开连接 none", unknown = "1001 找不到特征值：";
  EXPECT_EQ(host.outcomes, (Lines{"1002 cmdType:11, 已有操作在进行中 none", lost, lost, unknown + "C92A none",
                                  unknown + "1234 none", unknown + "no uuid none"}));
  EXPECT_EQ(host.peripheral->calls, Lines{"write 01"});
  EXPECT_EQ(host.log->count("Error:Error Domain=com.kwt.sdk Code=1001"), 5);
}

TEST(Dispatcher, RoutesAcknowledgementsAndNotifications) {
  Dispatched host;
  host.notify(host.fileNotify, "aa");  // nothing acknowledged yet
  host.send();
  host.notify(host.fileNotify, "aa");
  EXPECT_EQ(host.taken(), Lines());
  host.acknowledge(host.fileWrite);
  EXPECT_EQ(host.helper->cmdType(), 3);
  host.notify(host.firmware, "BB", Error("radio", 5, {}));  // any characteristic completes the command
  host.notify(host.fileNotify, "cc");
  EXPECT_EQ(host.taken(), Lines{"5  bb"});
  EXPECT_FALSE(host.helper->completionBlock());

  host.send(4);
  host.acknowledge(host.fileWrite, Error("radio", 6, {}));
  host.notify(host.fileNotify, "dd");
  EXPECT_EQ(host.taken(), Lines{"6  none"});
  host.acknowledge(host.fileWrite);  // its context went with the failure
  EXPECT_EQ(host.helper->cmdType(), 0);

  // Firmware data completes on its acknowledgement, also when the characteristic's shared_ptr owns nothing.
  FakeCharacteristic lasting("7777", characteristic_property::write);
  for (const auto& characteristic : {std::shared_ptr<FakeCharacteristic>(std::shared_ptr<void>(), &lasting),
                                     FakeHost::make("7777", characteristic_property::write)}) {
    host.helper->addDiscoveredCharacteristic(characteristic);
    characteristic->setValue(Bytes{0x83, 0x01});
    host.send(15, "7777");
    host.acknowledge(characteristic);
    EXPECT_EQ(host.taken(), Lines{"ok 8301"});
    EXPECT_EQ(host.helper->cmdType(), 15);
  }

  Lines packets;
  host.send(5);  // a stream takes every notification
  host.acknowledge(host.fileWrite);
  host.helper->setWriteDataBlock(into(packets));
  host.notify(host.fileNotify, "");
  EXPECT_EQ(packets, Lines{"ok "});
  EXPECT_EQ(host.taken(), Lines());
  host.helper->setWriteDataBlock(nullptr);
  host.notify(host.fileNotify, "ee");
  EXPECT_EQ(host.taken(), Lines{"ok ee"});
}

TEST(Dispatcher, WhatIsStoredDuringADeliverySurvivesIt) {
  Dispatched host;
  host.helper->sendCommand({1}, wire::CHARACTERISTIC_WRITE, 3, [&](const MaybeError&, const auto&) {
    EXPECT_TRUE(host.helper->completionBlock());  // still busy: a command inside a completion is refused
    host.send();
    host.helper->setCompletionBlock(into(host.outcomes));
  });
  host.acknowledge(host.fileWrite);
  for (const char* reply : {"01", "02"}) host.notify(host.fileNotify, reply);
  EXPECT_EQ(host.outcomes, (Lines{"1002 cmdType:3, 已有操作在进行中 none", "ok 02"}));
}

// A host that keeps a command's block may call it when another one needs the same notifications.
TEST(Dispatcher, AnEndedCommandLeavesTheSubscriptionOfALaterOne) {
  Dispatched host;
  host.helper->getPower(into(host.outcomes));
  const auto first = host.helper->completionBlock();
  host.helper->setCompletionBlock(first);
  host.helper->setCompletionBlock(nullptr);
  host.helper->getPower(into(host.outcomes));
  first(std::nullopt, "99ec");
  EXPECT_TRUE(host.peripheral->calls.back().starts_with("write"));
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec");
  EXPECT_EQ(host.peripheral->calls.back(), "off C92A");
  EXPECT_EQ(host.outcomes, (Lines{"ok 0", "ok 0"}));
}

TEST(Dispatcher, HostExceptionsStopAtTheLibrary) {
  Dispatched host;
  host.helper->getPower([](const MaybeError&, std::uint64_t) { throw std::runtime_error("host bug"); });
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec");
  EXPECT_EQ(host.peripheral->calls.back(), "off C92A");
  EXPECT_FALSE(host.helper->completionBlock());
  host.peripheral->onWrite = [](const auto&) { throw 7; };
  host.send();
  EXPECT_FALSE(host.helper->completionBlock());
  EXPECT_EQ(host.log->count("threw"), 3);
  host.peripheral->onWrite = [&](const auto& characteristic) {  // fails twice, is reported once
    host.acknowledge(characteristic, Error("radio", 6, {}));
    throw std::runtime_error("and threw");
  };
  host.send();
  EXPECT_EQ(host.outcomes, (Lines{"0 The peripheral threw when it was asked to write. none", "6  none"}));
}

TEST(Dispatcher, KeepsNeitherCharacteristicsNorTheFacadeAlive) {
  FakeHost host;
  host.helper->sendCommand({1}, wire::CHARACTERISTIC_WRITE, 3, nullptr);
  const std::weak_ptr<Characteristic> characteristic = host.fileWrite;
  host.helper->setDiscoveredCharacteristics({});
  host.fileWrite = nullptr;
  EXPECT_TRUE(characteristic.expired());

  host.helper->addDiscoveredCharacteristic(host.statusWrite);
  const std::weak_ptr<KWTBluetoothHelper> weak = host.helper;
  host.helper->getPower([&](const MaybeError&, std::uint64_t) { host.helper = nullptr; });
  const auto update = host.helper->didUpdateValueForCharacteristicBlock();
  host.acknowledge(host.statusWrite);
  update(host.peripheral, host.statusNotify, std::nullopt);
  EXPECT_TRUE(weak.expired());
  update(host.peripheral, host.statusNotify, std::nullopt);  // the facade is gone
}

TEST(Registry, FindsByValueAndReplaces) {
  FakeHost host;
  const auto other =
      FakeHost::make("0000c92a-0000-1000-8000-00805f9b34fb", characteristic_property::indicate);
  host.helper->startSubscribingToCharacteristic("c92a");
  host.helper->addDiscoveredCharacteristicBlock()(other);
  EXPECT_EQ(host.helper->discoveredCharacteristics().size(), 5U);
  EXPECT_EQ(host.helper->discoveredCharacteristics().at(*Uuid::fromString("C92A")), other);
  for (const char* uuid : {"C92A", "nonsense"}) host.helper->stopSubscribingToCharacteristic(uuid);
  EXPECT_EQ(host.peripheral->calls, Lines{"on C92A"});
  EXPECT_EQ(host.log->count("Characteristic not found: "), 2);
  host.helper->setConnectedPeripheral(nullptr);
  host.helper->addDiscoveredCharacteristic(nullptr);
  host.helper->startSubscribingToCharacteristic("C92A");
}

TEST(Facade, SharedIsOneAndItsPlatformIsFixedByTheFirstUse) {
  const auto log = std::make_shared<LineLog>();
  KWTBluetoothHelper::setSharedPlatform({nullptr, nullptr, nullptr, log});
  const auto helper = KWTBluetoothHelper::shared();
  EXPECT_EQ(helper, KWTBluetoothHelper::shared());
  KWTBluetoothHelper::setSharedPlatform({});
  EXPECT_EQ(log->count("setSharedPlatform has no effect"), 1);
  EXPECT_NE(helper, KWTBluetoothHelper::create());
}

}  // namespace
}  // namespace kwtsdk::testing
