#include <gtest/gtest.h>

#include "tests/support/sim_host.h"

namespace kwtsdk::testing {
namespace {

constexpr const char* kFileWrite = wire::CHARACTERISTIC_WRITE;

TEST(Dispatcher, RefusesInAFixedOrder) {
  FakeHost host;
  Lines outcomes;
  const auto send = [&](const char* uuid = "C92A") {
    host.helper->sendCommand({2}, uuid, 11, into(outcomes));
  };
  host.helper->sendCommand({1}, kFileWrite, 3, into(outcomes));
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
  EXPECT_EQ(outcomes, (Lines{"1002 cmdType:11, 已有操作在进行中 none", lost, lost, unknown + "C92A none",
                             unknown + "1234 none", unknown + "no uuid none"}));
  EXPECT_EQ(host.peripheral->calls, Lines{"write 01"});
  EXPECT_EQ(host.log->count("Error:Error Domain=com.kwt.sdk Code=1001"), 5);
}

TEST(Dispatcher, RoutesAcknowledgementsAndNotifications) {
  FakeHost host;
  Lines outcomes, packets;
  const auto taken = [&] { return std::exchange(outcomes, {}); };
  host.notify(host.fileNotify, "aa");  // nothing acknowledged yet
  host.helper->sendCommand({1}, kFileWrite, 3, into(outcomes));
  host.notify(host.fileNotify, "aa");
  EXPECT_EQ(taken(), Lines());
  host.acknowledge(host.fileWrite);
  EXPECT_EQ(host.helper->cmdType(), 3);
  host.notify(host.firmware, "BB", Error("radio", 5, {}));  // any characteristic completes the command
  host.notify(host.fileNotify, "cc");
  EXPECT_EQ(taken(), Lines{"5  bb"});
  EXPECT_FALSE(host.helper->completionBlock());

  host.helper->sendCommand({1}, kFileWrite, 4, into(outcomes));
  host.acknowledge(host.fileWrite, Error("radio", 6, {}));
  host.notify(host.fileNotify, "dd");
  EXPECT_EQ(taken(), Lines{"6  none"});
  host.acknowledge(host.fileWrite);  // its context went with the failure
  EXPECT_EQ(host.helper->cmdType(), 0);

  // Firmware data completes on its acknowledgement, also when the characteristic's shared_ptr owns nothing.
  FakeCharacteristic lasting("7777", characteristic_property::write);
  for (const auto& characteristic : {std::shared_ptr<FakeCharacteristic>(std::shared_ptr<void>(), &lasting),
                                     FakeHost::make("7777", characteristic_property::write)}) {
    host.helper->addDiscoveredCharacteristic(characteristic);
    characteristic->setValue(Bytes{0x83, 0x01});
    host.helper->sendCommand({0x85}, "7777", 15, into(outcomes));
    host.acknowledge(characteristic);
    EXPECT_EQ(taken(), Lines{"ok 8301"});
    EXPECT_EQ(host.helper->cmdType(), 15);
  }

  host.helper->sendCommand({1}, kFileWrite, 5, into(outcomes));  // a stream takes every notification
  host.acknowledge(host.fileWrite);
  host.helper->setWriteDataBlock(into(packets));
  host.notify(host.fileNotify, "");
  host.fileNotify->setValue(std::nullopt);
  host.helper->didUpdateValueForCharacteristic(host.peripheral, host.fileNotify, std::nullopt);
  EXPECT_EQ(packets, (Lines{"ok ", "ok none"}));
  EXPECT_EQ(taken(), Lines());
  host.helper->setWriteDataBlock(nullptr);
  host.notify(host.fileNotify, "ee");
  EXPECT_EQ(taken(), Lines{"ok ee"});
}

TEST(Dispatcher, WhatIsStoredDuringADeliverySurvivesIt) {
  FakeHost host;
  Lines outcomes;
  host.helper->sendCommand({1}, kFileWrite, 3, [&](const MaybeError&, const auto&) {
    EXPECT_TRUE(host.helper->completionBlock());  // still busy: a command inside a completion is refused
    host.helper->sendCommand({2}, kFileWrite, 3, into(outcomes));
    host.helper->setCompletionBlock(into(outcomes));
  });
  host.acknowledge(host.fileWrite);
  for (const char* reply : {"01", "02"}) host.notify(host.fileNotify, reply);
  EXPECT_EQ(outcomes, (Lines{"1002 cmdType:3, 已有操作在进行中 none", "ok 02"}));
}

// A host that keeps a command's block may call it when another one needs the same notifications.
TEST(Dispatcher, AnEndedCommandLeavesTheSubscriptionOfALaterOne) {
  FakeHost host;
  Lines outcomes;
  host.helper->getPower(into(outcomes));
  const auto first = host.helper->completionBlock();
  host.helper->setCompletionBlock(first);
  host.helper->setCompletionBlock(nullptr);
  host.helper->getPower(into(outcomes));
  first(std::nullopt, "99ec");
  EXPECT_TRUE(host.peripheral->calls.back().starts_with("write"));
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec");
  EXPECT_EQ(host.peripheral->calls.back(), "off C92A");
  EXPECT_EQ(outcomes, (Lines{"ok 0", "ok 0"}));
}

TEST(Dispatcher, HostExceptionsStopAtTheLibrary) {
  FakeHost host;
  Lines outcomes;
  host.helper->getPower([](const MaybeError&, std::uint64_t) { throw std::runtime_error("host bug"); });
  host.acknowledge(host.statusWrite);
  host.notify(host.statusNotify, "99ec");
  EXPECT_EQ(host.peripheral->calls.back(), "off C92A");
  EXPECT_FALSE(host.helper->completionBlock());
  host.peripheral->onWrite = [](const auto&) { throw 7; };
  host.helper->sendCommand({1}, kFileWrite, 3, into(outcomes));
  EXPECT_FALSE(host.helper->completionBlock());
  EXPECT_EQ(host.log->count("threw"), 3);
  host.peripheral->onWrite = [&](const auto& characteristic) {  // fails twice, is reported once
    host.acknowledge(characteristic, Error("radio", 6, {}));
    throw std::runtime_error("and threw");
  };
  host.helper->sendCommand({1}, kFileWrite, 3, into(outcomes));
  EXPECT_EQ(outcomes, (Lines{"0 The peripheral threw when it was asked to write. none", "6  none"}));
}

TEST(Dispatcher, KeepsNeitherCharacteristicsNorTheFacadeAlive) {
  FakeHost host;
  host.helper->sendCommand({1}, kFileWrite, 3, nullptr);
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
  for (const char* uuid : {"C92A", "1234", "nonsense"}) host.helper->stopSubscribingToCharacteristic(uuid);
  EXPECT_EQ(host.peripheral->calls, Lines{"on C92A"});
  EXPECT_EQ(host.log->lines(), (Lines{"Characteristic not found: C92A", "Characteristic not found: 1234",
                                      "Characteristic not found: nonsense"}));
  host.helper->setDiscoveredCharacteristics({});
  EXPECT_TRUE(host.helper->discoveredCharacteristics().empty());
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
