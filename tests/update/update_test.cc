#include <gtest/gtest.h>

#include "codec/crc32.h"
#include "tests/support/played_host.h"
#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {
namespace {

/// A recorder that takes updates.
struct Update : PlayedHost {
  explicit Update(const std::shared_ptr<VirtualTimeScheduler>& virtualTime)
      : PlayedHost(virtualTime), outcome(scheduler) {
    answers = {{"97", "9801"}, {"90", "9101"}, {"8c", "8d"},  {"80", "81424553540000000000f400"},
               {"86", "8701"}, {"82", "8301"}, {"88", "8401"}};
    helper = KWTBluetoothHelper::create({virtualTime, settings, nullptr, log});
    helper->setConnectedPeripheral(peripheral);
    for (const auto& characteristic : {firmware, statusWrite})
      helper->addDiscoveredCharacteristic(characteristic);
  }

  /// How many bytes each packet held.
  std::vector<std::size_t> packets() const {
    std::vector<std::size_t> sizes;
    for (const auto& call : peripheral->calls) {
      if (call.starts_with("write 85")) sizes.push_back((call.size() - 8) / 2);
    }
    return sizes;
  }
  std::uint64_t record() const { return settings->read(key).value_or(0); }
  /// Installs an image of that size.
  void run(std::size_t size) {
    const Bytes image = recordingOf(size);
    key = "KWTKey_" + std::to_string(internal::crc32Value(image));
    writeFile(path, image);
    const auto note = [this](std::uint64_t done, std::uint64_t total) { progress = {done, total}; };
    helper->updateFirmware(path, note, outcome.completion());
    outcome.wait(1h);
    scheduler.sleep(10ms);
  }

  TemporaryFolder folder;
  std::string path = folder.file("image"), key;
  std::shared_ptr<NotedSettings> settings = std::make_shared<NotedSettings>();
  Outcome outcome;
  std::pair<std::uint64_t, std::uint64_t> progress;
};

TEST(Update, RunsAllStepsAndRemovesItsRecord) {
  play<Update>([](auto& u) {
    u.settings->values["KWTKey_1"] = 7;
    std::vector<int> logged;  // lines of a check at each subscription: its own comes behind it
    u.peripheral->onSetNotify = [&](bool on) {
      if (on) logged.push_back(u.log->count("updateCheckData"));
    };
    u.run(16384);
    EXPECT_EQ(u.outcome.text() + u.outcome.value, "oksuccess");
    EXPECT_EQ(u.progress, std::pair(std::uint64_t{16384}, std::uint64_t{16384}));
    EXPECT_EQ(u.settings->calls, (Lines{u.key + "=8192", u.key + "=16384", "remove " + u.key, "flush"}));
    EXPECT_EQ(u.settings->values.size(), 1U);
    EXPECT_EQ(u.helper->MTU(), 244);
    EXPECT_FALSE(u.helper->completionBlock());
    std::vector<std::size_t> packets(68, 244);  // two segments
    packets.at(33) = packets.at(67) = 140;
    EXPECT_EQ(u.packets(), packets);
    std::string commands;  // each between "on" and "off", but the last
    for (const auto& call : u.peripheral->calls) {
      if (!call.starts_with("write 85"))
        commands += call.starts_with("write") ? call.substr(6, 2) : call.substr(0, 2);
    }
    EXPECT_EQ(commands, "on97ofon90ofon8cofon80ofon86ofon82ofon82ofon88of92");
    EXPECT_EQ(u.log->count("updateBegin, MTU:244"), 1);
    EXPECT_EQ(u.log->count("updateCheckData res:1"), 2);
    EXPECT_EQ(logged, (std::vector<int>{0, 0, 0, 0, 0, 0, 2, 4}));
  });
}

// A step's answer is spoilt or missing, or the link is lost after a write.
TEST(Update, EveryFailureIsReportedAndLeavesTheRecord) {
  const std::tuple<const char*, const char*, int, const char*, std::uint64_t> cases[]{
      {"97", "9800", 0, "1008 固件更新-准备失败", 0},
      {"97", nullptr, 0, "999 timeout", 0},
      {"90", "9100", 0, "1010 固件更新-分区选择错误", 0},
      {"90", nullptr, 0, "999 timeout", 0},
      {"8c", nullptr, 0, "999 timeout", 0},
      {"80", nullptr, 0, "999 timeout", 0},
      {"86", "8700", 0, "1009 固件更新-配置失败", 0},
      {"86", nullptr, 0, "999 timeout", 0},
      {"82", "8300", 0, "1012 固件更新-校验错误", 0},
      {"88", "8400", 0, "1013 固件更新-结束失败", 20000},
      {"", "", 2, "1001 蓝牙断开连接", 0},  // found by the resume verification
      {"", "", 3, "1001 蓝牙断开连接", 0},
      {"", "", 4, "1009 固件更新-配置失败", 0},
      {"", "", 5, "1000 蓝牙断开，停止固件传输", 0},
      {"", "", 50, "1000 蓝牙断开，停止固件传输", 8192}};
  playEach<Update>(cases, [](auto& u, auto frame, auto reply, int lostAfter, auto outcome, auto record) {
    u.disconnectAt = lostAfter;
    u.answers.erase(frame);
    if (reply != nullptr) u.answers[frame] = reply;
    u.run(20000);
    EXPECT_EQ(u.outcome.text() + " " + u.outcome.value, outcome + std::string(" none"));
    EXPECT_EQ(u.record(), record) << outcome;
    EXPECT_EQ(u.settings->calls.size(), (record + 8191) / 8192);  // never flushed
    if (lostAfter != 0) return;
    EXPECT_EQ(u.helper->completionBlock() != nullptr, reply == nullptr) << frame;
    EXPECT_EQ(u.peripheral->calls.back() == "off 7777", reply != nullptr) << frame;
  });
  play<Update>([](auto& u) {  // there is no file
    u.helper->updateFirmware(u.path, nullptr, u.outcome.completion());
    EXPECT_EQ(u.outcome.ended(), "1011 读取固件文件失败");
    u.helper->uploadFirmWare(std::nullopt, 0, nullptr, u.outcome.completion());
    EXPECT_EQ(u.outcome.ended(), "1011 固件更新失败-空数据");
    EXPECT_TRUE(u.peripheral->calls.empty());
  });
}

TEST(Update, ATailShorterThanAPacketIsReportedAndNotSent) {
  playEach<Update>(std::array{50U, 8192U + 50, 8192U + 87, 88U, 8192U + 88, 0U}, [](auto& u, unsigned size) {
    u.run(size);
    const unsigned tail = size % 8192;
    const bool sent = tail == 0 || tail >= 88;
    EXPECT_EQ(u.outcome.error ? u.outcome.error->domain() + shown(u.outcome.error->code()) : "",
              sent ? "" : "std::out_of_range0");
    for (const unsigned number : {size, size - tail, tail})
      EXPECT_TRUE(sent || u.outcome.text().find(" " + shown(number) + " ") != std::string::npos) << number;
    EXPECT_EQ(u.record(), sent ? 0 : size - tail);
  });
}

}  // namespace
}  // namespace kwtsdk::testing
