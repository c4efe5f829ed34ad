#include <gtest/gtest.h>

#include "codec/crc32.h"
#include "tests/support/noted_settings.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using namespace testing;

/// A facade on virtual time and a recorder that answers by a table, on a thread of its own.
struct Update {
  explicit Update(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : scheduler(*virtualTime), link(scheduler.serialQueue("link")), host(virtualTime), outcome(scheduler) {
    host.helper = KWTBluetoothHelper::create({virtualTime, settings, nullptr, host.log});
    host.helper->setConnectedPeripheral(host.peripheral);
    host.helper->addDiscoveredCharacteristic(host.firmware);
    host.helper->addDiscoveredCharacteristic(host.statusWrite);
    host.peripheral->onWrite = [this](const auto& characteristic) { answer(characteristic); };
  }
  ~Update() { link = nullptr; }

  void answer(const std::shared_ptr<Characteristic>& characteristic) {
    const std::string frame = host.peripheral->calls.back().substr(6);
    if (frame.starts_with("85")) packets.push_back(frame.size() / 2 - 1);
    if (++writes == disconnectAt) host.peripheral->current = PeripheralState::disconnected;
    if (writes == silentAt) return;
    link->async([this, characteristic, frame] {
      host.acknowledge(characteristic);
      const auto reply = answers.find(frame.substr(0, 2));
      if (reply != answers.end()) host.notify(host.firmware, reply->second);
    });
  }
  std::uint64_t record() const { return settings->read(key).value_or(0); }

  /// Installs an image of that size; `settle` is how long that may take.
  void run(std::size_t size, Duration settle = 1h) {
    image = recordingOf(size);
    key = "KWTKey_" + std::to_string(internal::crc32Value(image));
    writeFile(path, std::string(image.begin(), image.end()));
    const auto note = [this](std::uint64_t done, std::uint64_t total) { progress = {done, total}; };
    host.helper->updateFirmware(path, note, outcome.completion(value));
    outcome.wait(settle);
    scheduler.sleep(10ms);
  }

  VirtualTimeScheduler& scheduler;
  std::shared_ptr<SerialQueue> link;
  TemporaryFolder folder;
  std::string path = folder.file("image"), key;
  std::shared_ptr<NotedSettings> settings = std::make_shared<NotedSettings>();
  std::map<std::string, std::string> answers{
      {"97", "9801"}, {"90", "9101"}, {"8c", "8d"},  {"80", "81424553540000000000f400"},
      {"86", "8701"}, {"82", "8301"}, {"88", "8401"}};
  std::vector<std::size_t> packets;
  int writes = 0, silentAt = 0, disconnectAt = 0;
  FakeHost host;
  Outcome outcome;
  std::optional<std::string> value;
  std::pair<std::uint64_t, std::uint64_t> progress;
  Bytes image;
};

TEST(Update, RunsAllStepsAndRemovesItsRecord) {
  play<Update>([](auto& u) {
    u.settings->values["KWTKey_1"] = 7;
    std::vector<int> logged;  // lines of a check at each subscription: its own comes behind it
    u.host.peripheral->onSetNotify = [&](bool on) {
      if (on) logged.push_back(u.host.log->count("updateCheckData"));
    };
    u.run(16384);
    EXPECT_EQ(u.outcome.text() + u.value.value_or(" none"), "oksuccess");
    EXPECT_EQ(u.progress, std::pair(std::uint64_t{16384}, std::uint64_t{16384}));
    EXPECT_EQ(u.settings->calls, (Lines{u.key + "=8192", u.key + "=16384", "remove " + u.key, "flush"}));
    EXPECT_EQ(u.settings->values.size(), 1U);
    EXPECT_EQ(u.host.helper->MTU(), 244);
    EXPECT_FALSE(u.host.helper->completionBlock());
    std::vector<std::size_t> segment(33, 244), all;
    segment.push_back(140);
    for (int i = 0; i < 2; ++i) all.insert(all.end(), segment.begin(), segment.end());
    EXPECT_EQ(u.packets, all);
    std::string commands;  // each between "on" and "off", but the last
    for (const auto& call : u.host.peripheral->calls) {
      if (!call.starts_with("write 85"))
        commands += call.starts_with("write") ? call.substr(6, 2) : call.substr(0, 2);
    }
    EXPECT_EQ(commands, "on97ofon90ofon8cofon80ofon86ofon82ofon82ofon88of92");
    EXPECT_EQ(u.host.log->count("updateBegin, MTU:244"), 1);
    EXPECT_EQ(u.host.log->count("updateCheckData res:1"), 2);
    EXPECT_EQ(logged, (std::vector<int>{0, 0, 0, 0, 0, 0, 2, 4}));
  });
}

TEST(Update, PacketsFollowTheMtuUpwardsOnly) {
  // What the recorder offers, what the peripheral takes, and what becomes of it.
  const std::tuple<const char*, std::size_t, std::int64_t, std::size_t, std::size_t> cases[]{
      {"0000", 512, 0, 220, 52},           {"6400", 512, 100, 220, 52},  {"dc00", 512, 220, 220, 52},
      {"f400", 512, 244, 244, 140},        {"0002", 512, 512, 512, 512}, {"0004", 512, 512, 512, 512},
      {"0004", SIZE_MAX, 1024, 1024, 1024}};
  for (const auto& test : cases) {
    play<Update>([&](auto& u) {
      const auto& [offered, limit, mtu, first, last] = test;
      u.host.peripheral->longestWrite = limit;
      u.answers["80"] = std::string("8142455354000000").append(offered);
      u.run(8192);
      EXPECT_EQ(u.outcome.text(), "ok");
      EXPECT_EQ(u.host.helper->MTU(), mtu);
      EXPECT_TRUE(u.packets.front() == first && u.packets.back() == last) << mtu;
    });
  }
}

TEST(Update, EveryFailureIsReportedAndLeavesTheRecord) {
  const std::tuple<const char*, const char*, const char*, std::uint64_t> cases[]{
      {"97", "9800", "1008 固件更新-准备失败", 0},
      {"97", nullptr, "999 timeout", 0},
      {"90", "9100", "1010 固件更新-分区选择错误", 0},
      {"90", nullptr, "999 timeout", 0},
      {"8c", nullptr, "999 timeout", 0},
      {"80", nullptr, "999 timeout", 0},
      {"86", "8700", "1009 固件更新-配置失败", 0},
      {"86", nullptr, "999 timeout", 0},
      {"82", "8300", "1012 固件更新-校验错误", 0},
      {"88", "8400", "1013 固件更新-结束失败", 20000}};
  for (const auto& test : cases) {
    play<Update>([&](auto& u) {
      const auto& [frame, reply, outcome, record] = test;
      u.answers.erase(frame);
      if (reply != nullptr) u.answers[frame] = reply;
      u.run(20000);
      EXPECT_EQ(u.outcome.text(), outcome);
      EXPECT_EQ(u.value, std::nullopt);
      EXPECT_EQ(u.record(), record);
      EXPECT_EQ(u.host.helper->completionBlock() != nullptr, reply == nullptr) << frame;
      EXPECT_EQ(u.host.peripheral->calls.back() == "off 7777", reply != nullptr) << frame;
      EXPECT_EQ(u.settings->calls.size(), (record + 8191) / 8192);  // never flushed
    });
  }
}

TEST(Update, ErrorsOfDispatcherAndLinkArePassedOn) {
  play<Update>([](auto& u) {  // the file
    u.host.helper->updateFirmware(u.folder.path(), nullptr, u.outcome.completion(u.value));
    EXPECT_EQ(u.outcome.ended(), "1011 读取固件文件失败");
    EXPECT_TRUE(u.host.peripheral->calls.empty());
  });
  const std::tuple<int, const char*, std::uint64_t> cases[]{
      {2, "1001 蓝牙断开连接", 0},  // found by the resume verification
      {3, "1001 蓝牙断开连接", 0},
      {4, "1009 固件更新-配置失败", 0},
      {5, "1000 蓝牙断开，停止固件传输", 0},
      {50, "1000 蓝牙断开，停止固件传输", 8192}};
  for (const auto& test : cases) {
    play<Update>([&](auto& u) {
      const auto& [write, outcome, record] = test;  // the link is lost after that write
      u.disconnectAt = write;
      u.run(20000);
      EXPECT_EQ(u.outcome.text(), outcome) << write;
      EXPECT_EQ(u.record(), record);
    });
  }
}

TEST(Update, OverAPendingCommandDropsBoth) {
  play<Update>([](auto& u) {
    u.answers.clear();
    Outcome power(u.scheduler);
    u.host.helper->getPower([&](const MaybeError& error, std::uint64_t) { power.take(error); });
    u.run(100);
    EXPECT_EQ(u.outcome.text(), "1008 固件更新-准备失败");
    EXPECT_EQ(power.calls, 0);
    EXPECT_FALSE(u.host.helper->completionBlock());
  });
}

TEST(Update, ATailShorterThanAPacketIsReportedAndNotSent) {
  for (const std::size_t size : {50U, 8192U + 50, 8192U + 87}) {
    play<Update>([&](auto& u) {
      u.run(size);
      ASSERT_TRUE(u.outcome.error);
      EXPECT_EQ(u.outcome.error->domain(), "std::out_of_range");
      EXPECT_EQ(u.outcome.error->code(), 0);
      for (const std::size_t number : {size, size / 8192 * 8192, size % 8192}) {
        EXPECT_NE(u.outcome.text().find(" " + std::to_string(number) + " "), std::string::npos);
      }
      EXPECT_EQ(u.record(), size / 8192 * 8192);
    });
  }
  for (const std::size_t size : {88U, 8192U + 88, 0U}) {
    play<Update>([&](auto& u) {
      u.run(size);
      EXPECT_EQ(u.outcome.text(), "ok") << size;
    });
  }
}

TEST(Update, ALateAnswerDoesNotEndTheNextStep) {
  play<Update>([](auto& u) {
    u.answers.erase("97");
    u.run(100, 6s);
    EXPECT_EQ(u.outcome.text(), "999 timeout");
    u.answers["97"] = "9801";
    u.host.notify(u.host.firmware, "9801");  // clears what the first update left pending
    EXPECT_FALSE(u.host.helper->completionBlock());
    EXPECT_EQ(u.outcome.calls, 1);
    for (int i = 0; i < 2; ++i) u.host.helper->updateFirmware(u.path, nullptr, u.outcome.completion(u.value));
    for (int i = 0; i < 2; ++i) EXPECT_EQ(u.outcome.ended(), "ok");
  });
}

// What is never acknowledged waits until the host says that the link is gone. That leaves what was confirmed,
// and a recorder that starts anew.
TEST(Update, ALinkLostAtAnyWriteLeavesWhatWasConfirmed) {
  constexpr int firstPacket = 6, packets = 34, writes = 76;  // of two segments; the last one is bye
  for (int lost = 1; lost <= writes; ++lost) {
    play<Update>([&](auto& u) {
      u.disconnectAt = u.silentAt = lost;
      u.run(16384, 1min);
      const bool transfers = lost >= firstPacket && lost < writes;  // else a handshake step ends by itself
      EXPECT_EQ(u.outcome.calls, lost < firstPacket ? 1 : 0) << lost;
      u.host.helper->setCompletionBlock(nullptr);
      ASSERT_TRUE(u.outcome.calls == 1 || u.outcome.wait());
      EXPECT_EQ(u.outcome.text().starts_with("1000 蓝牙断开，停止固件传输"), transfers) << u.outcome.text();
      EXPECT_NE(u.outcome.text(), "ok") << lost;
      const int checks = (lost - firstPacket) / (packets + 1);
      EXPECT_EQ(u.record(), 8192U * static_cast<unsigned>(checks)) << lost;
      u.disconnectAt = u.silentAt = 0;
      u.host.peripheral->current = PeripheralState::connected;
      u.outcome = Outcome(u.scheduler);
      u.run(16384);
      EXPECT_EQ(u.outcome.text(), "ok") << lost;
      EXPECT_FALSE(u.settings->read(u.key));
    });
  }
}

TEST(Transfer, ARefusedPacketReturnsAlsoInsideACompletion) {
  for (const bool connected : {false, true}) {
    play<Update>([&](auto& u) {
      if (!connected) u.host.peripheral->current = PeripheralState::disconnected;
      Outcome packet(u.scheduler);
      u.host.helper->updatePrepare([&](const MaybeError& error, bool) {
        u.host.helper->updateSendData({1}, packet.completion(u.value));
        u.outcome.completion(u.value)(error, std::nullopt);
      });
      ASSERT_TRUE(u.outcome.wait() && packet.wait());
      EXPECT_TRUE(packet.text().starts_with(connected ? "1002" : "1001")) << packet.text();
    });
  }
}

TEST(Transfer, OnePacketIsInFlightAlways) {
  play<Update>([](auto& u) {
    const auto answer = u.host.peripheral->onWrite;
    u.host.peripheral->onWrite = [&](const auto& characteristic) {
      u.link->async([&] { u.scheduler.sleep(2s); });
      answer(characteristic);
    };
    u.host.helper->setMTU(4096);
    u.host.helper->uploadFirmWare(recordingOf(8192), 0, nullptr, u.outcome.completion(u.value));
    u.scheduler.sleep(1s);
    u.host.helper->setCompletionBlock(nullptr);  // which a watchdog does as well
    u.scheduler.sleep(500ms);
    EXPECT_EQ(u.packets.size(), 1U);
    EXPECT_EQ(u.outcome.ended(), "ok");
    EXPECT_EQ(u.packets.size(), 2U);
  });
}

TEST(Transfer, BeginsWhereTheCallerSays) {
  const std::tuple<std::uint64_t, std::size_t, std::size_t, std::uint64_t, int> cases[]{
      {4096, 34, 1, 12288, 0}, {12288, 0, 0, 0, 0}, {12289, 51, 2, 12288, 1}, {0, 51, 2, 12288, 0}};
  for (const auto& test : cases) {
    play<Update>([&](auto& u) {
      const auto& [offset, packets, checks, record, reset] = test;
      u.image = recordingOf(12288);
      u.key = "KWTKey_" + std::to_string(internal::crc32Value(u.image));
      u.host.helper->setMTU(244);
      u.host.helper->uploadFirmWare(u.image, offset, nullptr, u.outcome.completion(u.value));
      EXPECT_EQ(u.outcome.ended(), "ok");
      EXPECT_TRUE(u.packets.size() == packets && u.settings->calls.size() == checks) << offset;
      EXPECT_EQ(u.record(), record);
      EXPECT_EQ(u.host.log->count("断点续传的偏移量大于等于固件文件长度,重置为0"), reset);
    });
  }
  play<Update>([](auto& u) {
    u.host.helper->uploadFirmWare(std::nullopt, 0, nullptr, u.outcome.completion(u.value));
    EXPECT_EQ(u.outcome.text(), "1011 固件更新失败-空数据");
  });
}

}  // namespace
}  // namespace kwtsdk
