#include <gtest/gtest.h>

#include "codec/crc32.h"
#include "tests/support/noted_settings.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;
using Lines = std::vector<std::string>;
using Step = std::pair<std::string, std::string>;  // a frame's beginning, its answer

/// A facade on virtual time and a recorder that answers by a table, on a thread of its own.
struct Update {
  explicit Update(const std::shared_ptr<sim::VirtualTimeScheduler>& virtualTime)
      : scheduler(*virtualTime), link(scheduler.serialQueue("link")), host(virtualTime), outcome(scheduler) {
    host.helper = KWTBluetoothHelper::create(
        {.scheduler = virtualTime, .settings = settings, .opusConverter = nullptr, .log = host.log});
    host.helper->setConnectedPeripheral(host.peripheral);
    host.helper->addDiscoveredCharacteristic(host.firmware);
    host.helper->addDiscoveredCharacteristic(host.statusWrite);
    host.peripheral->onWrite = [this](const auto& characteristic) { answer(characteristic); };
  }

  void answer(const std::shared_ptr<Characteristic>& characteristic) {
    const std::string frame = host.peripheral->calls.back().substr(6);
    if (frame.starts_with("85")) packets.push_back(frame.size() / 2 - 1);
    if (++writes == disconnectAt) host.peripheral->current = PeripheralState::disconnected;
    if (writes == silentAt) return;
    link->async([this, characteristic, frame] {
      host.acknowledge(characteristic);
      for (const auto& [begin, reply] : answers) {
        if (frame.starts_with(begin) && reply != "silence") host.notify(host.firmware, reply);
      }
    });
  }

  void answerWith(const std::string& begin, const std::string& reply) {
    for (auto& step : answers) {
      if (step.first == begin) step.second = reply;
    }
  }

  /// Installs an image of that size; `settle` is how long that may take.
  void run(std::size_t size, Duration settle = 1h) {
    image = testing::recordingOf(size);
    key = "KWTKey_" + std::to_string(internal::crc32Value(image));
    testing::writeFile(path, std::string(image.begin(), image.end()));
    host.helper->updateFirmware(
        path,
        [this](std::uint64_t done, std::uint64_t total) {
          progress = {done, total};
        },
        outcome.completion(value));
    outcome.wait(settle);
    scheduler.sleep(10ms);
  }

  sim::VirtualTimeScheduler& scheduler;
  std::shared_ptr<SerialQueue> link;
  testing::TemporaryFolder folder;
  std::string path = folder.file("image"), key;
  std::shared_ptr<testing::NotedSettings> settings = std::make_shared<testing::NotedSettings>();
  std::vector<Step> answers{
      {"9701", "9801"}, {"9000", "9101"}, {"8c", "8d"},  {"80", "81424553540000000000f400"},
      {"86", "8701"},   {"82", "8301"},   {"88", "8401"}};
  std::vector<std::size_t> packets;
  int writes = 0, silentAt = 0, disconnectAt = 0;
  testing::FakeHost host;
  testing::Outcome outcome;
  std::optional<std::string> value;
  std::pair<std::uint64_t, std::uint64_t> progress;
  Bytes image;
};

void update(const std::function<void(Update&)>& body) {
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    Update instance(scheduler);
    body(instance);
    instance.link = nullptr;
  });
}

TEST(Update, RunsAllStepsAndRemovesItsRecord) {
  update([](Update& u) {
    u.settings->values["KWTKey_1"] = 7;
    u.run(16384);
    EXPECT_EQ(u.outcome.text(), "ok");
    EXPECT_EQ(u.value, "success");
    EXPECT_EQ(u.progress, std::pair(std::uint64_t{16384}, std::uint64_t{16384}));
    EXPECT_EQ(u.settings->calls, (Lines{u.key + "=8192", u.key + "=16384", "remove " + u.key, "flush"}));
    EXPECT_EQ(u.settings->values.size(), 1U);
    EXPECT_EQ(u.host.helper->MTU(), 244);
    EXPECT_FALSE(u.host.helper->completionBlock());
    std::vector<std::size_t> segment(33, 244), all;
    segment.push_back(140);
    for (int i = 0; i < 2; ++i) all.insert(all.end(), segment.begin(), segment.end());
    EXPECT_EQ(u.packets, all);
    Lines commands;
    for (const auto& call : u.host.peripheral->calls) {
      if (!call.starts_with("write 85")) commands.push_back(call.substr(0, 8));
    }
    EXPECT_EQ(commands,
              (Lines{"on 7777",  "write 97", "off 7777", "on 7777",  "write 90", "off 7777", "on 7777",
                     "write 8c", "off 7777", "on 7777",  "write 80", "off 7777", "on 7777",  "write 86",
                     "off 7777", "on 7777",  "write 82", "off 7777", "on 7777",  "write 82", "off 7777",
                     "on 7777",  "write 88", "off 7777", "write 92"}));
    EXPECT_EQ(u.host.log->count("updateBegin, MTU:244"), 1);
    EXPECT_EQ(u.host.log->count("updateCheckData res:1"), 2);
  });
}

TEST(Update, PacketsFollowTheMtuUpwardsOnly) {
  struct Case {
    const char* offered;
    std::int64_t mtu;
    std::size_t packet, last;
  };
  for (const Case& test : std::vector<Case>{{"0000", 0, 220, 52},
                                            {"6400", 100, 220, 52},
                                            {"dc00", 220, 220, 52},
                                            {"f400", 244, 244, 140},
                                            {"0002", 512, 512, 512},
                                            {"0004", 512, 512, 512}}) {  // the peripheral's limit
    update([&](Update& u) {
      u.answerWith("80", std::string("8142455354000000").append(test.offered));
      u.run(8192);
      EXPECT_EQ(u.outcome.text(), "ok");
      EXPECT_EQ(u.host.helper->MTU(), test.mtu);
      EXPECT_EQ(u.packets.front(), test.packet);
      EXPECT_EQ(u.packets.back(), test.last);
    });
  }
}

TEST(Update, EveryFailureIsReportedAndLeavesTheRecord) {
  struct Case {
    const char* begin;  // of the frame that is answered otherwise
    const char* reply;
    const char* outcome;
    std::uint64_t record;
    bool pending;
  };
  for (const Case& test : std::vector<Case>{{"9701", "9800", "1008 固件更新-准备失败", 0, false},
                                            {"9701", "silence", "999 timeout", 0, true},
                                            {"9000", "9100", "1010 固件更新-分区选择错误", 0, false},
                                            {"9000", "silence", "999 timeout", 0, true},
                                            {"8c", "silence", "999 timeout", 0, true},
                                            {"80", "silence", "999 timeout", 0, true},
                                            {"86", "8700", "1009 固件更新-配置失败", 0, false},
                                            {"86", "silence", "999 timeout", 0, true},
                                            {"82", "8300", "1012 固件更新-校验错误", 0, false},
                                            {"88", "8400", "1013 固件更新-结束失败", 20000, false}}) {
    update([&](Update& u) {
      u.answerWith(test.begin, test.reply);
      u.run(20000);
      EXPECT_EQ(u.outcome.text(), test.outcome);
      EXPECT_EQ(u.value, std::nullopt);
      EXPECT_EQ(u.settings->read(u.key).value_or(0), test.record);
      EXPECT_EQ(u.host.helper->completionBlock() != nullptr, test.pending) << test.begin << test.reply;
      EXPECT_EQ(u.host.peripheral->calls.back().substr(0, 8 * !test.pending), test.pending ? "" : "off 7777");
      EXPECT_EQ(u.settings->calls.size(), (test.record + 8191) / 8192);  // never flushed
    });
  }
}

TEST(Update, ErrorsOfDispatcherAndLinkArePassedOn) {
  update([](Update& u) {  // the file
    u.host.helper->updateFirmware(u.folder.path(), nullptr, u.outcome.completion(u.value));
    ASSERT_TRUE(u.outcome.wait());
    EXPECT_EQ(u.outcome.text(), "1011 读取固件文件失败");
    EXPECT_TRUE(u.host.peripheral->calls.empty());
  });
  struct Case {
    int write;  // after which the link is lost
    const char* outcome;
    std::uint64_t record;
  };
  for (const Case& test : std::vector<Case>{{2, "1001 蓝牙断开连接", 0},  // found by the resume verification
                                            {3, "1001 蓝牙断开连接", 0},
                                            {4, "1009 固件更新-配置失败", 0},
                                            {5, "1000 蓝牙断开，停止固件传输", 0},
                                            {50, "1000 蓝牙断开，停止固件传输", 8192}}) {
    update([&](Update& u) {
      u.disconnectAt = test.write;
      u.run(20000);
      EXPECT_EQ(u.outcome.text(), test.outcome) << test.write;
      EXPECT_EQ(u.settings->read(u.key).value_or(0), test.record);
    });
  }
}

TEST(Update, OverAPendingCommandDropsBoth) {
  update([](Update& u) {
    u.answers.clear();
    testing::Outcome power(u.scheduler);
    u.host.helper->getPower([&](const MaybeError& error, std::uint64_t) { power.take(error); });
    u.run(100);
    EXPECT_EQ(u.outcome.text(), "1008 固件更新-准备失败");
    EXPECT_EQ(power.calls, 0);
    EXPECT_FALSE(u.host.helper->completionBlock());
  });
}

TEST(Update, ATailShorterThanAPacketIsReportedAndNotSent) {
  for (const std::size_t size : {std::size_t{50}, std::size_t{8192 + 50}, std::size_t{8192 + 87}}) {
    update([&](Update& u) {
      u.run(size);
      ASSERT_TRUE(u.outcome.error);
      EXPECT_EQ(u.outcome.error->domain(), "std::out_of_range");
      EXPECT_EQ(u.outcome.error->code(), 0);
      for (const std::size_t number : {size, size / 8192 * 8192, size % 8192}) {
        EXPECT_NE(u.outcome.text().find(" " + std::to_string(number) + " "), std::string::npos);
      }
      EXPECT_EQ(u.settings->read(u.key).value_or(0), size / 8192 * 8192);
    });
  }
  for (const std::size_t size : {std::size_t{88}, std::size_t{8192 + 88}, std::size_t{0}}) {
    update([&](Update& u) {
      u.run(size);
      EXPECT_EQ(u.outcome.text(), "ok") << size;
    });
  }
}

TEST(Update, ALateAnswerDoesNotEndTheNextStep) {
  update([](Update& u) {
    u.answerWith("9701", "silence");
    u.run(100, 6s);
    EXPECT_EQ(u.outcome.text(), "999 timeout");
    u.answerWith("9701", "9801");
    u.host.notify(u.host.firmware, "9801");  // clears what the first update left pending
    EXPECT_FALSE(u.host.helper->completionBlock());
    EXPECT_EQ(u.outcome.calls, 1);
    testing::Outcome first(u.scheduler), second(u.scheduler);
    std::optional<std::string> value;
    u.host.helper->updateFirmware(u.path, nullptr, first.completion(value));
    u.host.helper->updateFirmware(u.path, nullptr, second.completion(value));
    EXPECT_TRUE(first.wait() && second.wait());
    EXPECT_EQ(first.text() + second.text(), "okok");
  });
}

// What is never acknowledged waits until the host says that the link is gone.
TEST(Update, AHostEndsATransferThatWaits) {
  for (const int silent : {6, 40, 41}) {  // a packet, the check, bye
    update([&](Update& u) {
      u.silentAt = silent;
      u.run(8192, 1min);
      EXPECT_EQ(u.outcome.calls, 0);
      u.host.peripheral->current = PeripheralState::disconnected;
      u.host.helper->setCompletionBlock(nullptr);
      ASSERT_TRUE(u.outcome.wait());
      EXPECT_EQ(u.outcome.text(), silent == 41 ? "999 timeout" : "1000 蓝牙断开，停止固件传输");
    });
  }
}

// A host that ends there leaves the same behind: what was confirmed, and a recorder that starts anew.
TEST(Update, ALinkLostAtAnyWriteLeavesWhatWasConfirmed) {
  constexpr int firstPacket = 6, packets = 34, writes = 76;  // of two segments; the last one is bye
  for (int lost = 1; lost <= writes; ++lost) {
    update([lost](Update& u) {
      u.disconnectAt = u.silentAt = lost;
      u.run(16384, 10s);
      u.host.helper->setCompletionBlock(nullptr);  // a handshake step has ended by itself
      ASSERT_TRUE(u.outcome.calls == 1 || u.outcome.wait());
      EXPECT_NE(u.outcome.text(), "ok") << lost;
      const int checks = (lost - firstPacket) / (packets + 1);
      EXPECT_EQ(u.settings->read(u.key).value_or(0), 8192U * static_cast<unsigned>(checks)) << lost;
      u.disconnectAt = u.silentAt = 0;
      u.host.peripheral->current = PeripheralState::connected;
      u.outcome = testing::Outcome(u.scheduler);
      u.run(16384);
      EXPECT_EQ(u.outcome.text(), "ok") << lost;
      EXPECT_FALSE(u.settings->read(u.key));
    });
  }
}

TEST(Transfer, ARefusedPacketReturnsAlsoInsideACompletion) {
  for (const bool connected : {false, true}) {
    update([connected](Update& u) {
      if (!connected) u.host.peripheral->current = PeripheralState::disconnected;
      testing::Outcome packet(u.scheduler);
      u.host.helper->updatePrepare([&](const MaybeError& error, bool) {
        u.host.helper->updateSendData({1}, packet.completion(u.value));
        u.outcome.completion(u.value)(error, std::nullopt);
      });
      ASSERT_TRUE(u.outcome.wait() && packet.wait());
      EXPECT_TRUE(packet.text().starts_with(connected ? "1002" : "1001")) << packet.text();
    });
  }
}

TEST(Transfer, BeginsWhereTheCallerSays) {
  struct Case {
    std::uint64_t offset;
    std::size_t packets, checks;
    std::uint64_t record;
    int reset;
  };
  for (const Case& test : std::vector<Case>{
           {4096, 34, 1, 12288, 0}, {12288, 0, 0, 0, 0}, {12289, 51, 2, 12288, 1}, {0, 51, 2, 12288, 0}}) {
    update([&](Update& u) {
      u.image = testing::recordingOf(12288);
      u.host.helper->setMTU(244);
      u.host.helper->uploadFirmWare(u.image, test.offset, nullptr, u.outcome.completion(u.value));
      ASSERT_TRUE(u.outcome.wait());
      EXPECT_EQ(u.outcome.text(), "ok");
      EXPECT_EQ(u.packets.size(), test.packets) << test.offset;
      EXPECT_EQ(u.settings->calls.size(), test.checks);
      const auto key = "KWTKey_" + std::to_string(internal::crc32Value(u.image));
      EXPECT_EQ(u.settings->read(key).value_or(0), test.record);
      EXPECT_EQ(u.host.log->count("断点续传的偏移量大于等于固件文件长度,重置为0"), test.reset);
    });
  }
  update([](Update& u) {
    u.host.helper->uploadFirmWare(std::nullopt, 0, nullptr, u.outcome.completion(u.value));
    EXPECT_EQ(u.outcome.text(), "1011 固件更新失败-空数据");
  });
}

}  // namespace
}  // namespace kwtsdk
