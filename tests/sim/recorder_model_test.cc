#include <gtest/gtest.h>

#include <random>

#include "tests/support/sim_host.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace std::chrono_literals;

const std::string battery = "99ec2a02b20a0001000000000000001003a34083df",
                  infoOf10 = "028204000a000000d103ee45", deletion10 = "048204000a000000d103ee45",
                  deletion11 = "048204000b000000b46452fd",
                  download10 = "03820c00000000000a0000000000000022f48e6a",
                  download10From32768 = "03820c00000000000a00000000800000a2efbb8b",
                  download11 = "03820c00000000000b00000000000000bcf424a6";

/// Two recordings, of two blocks and of one; the first has id 10.
struct Recorder {
  Recorder() {
    store->add(testing::recordingOf(40000), std::chrono::local_days(2024y / 5 / 17) + 9h + 30min + 1s, 3);
    store->add(Bytes(100, 7));
  }
  std::string answer(Channel channel, const std::string& hex) {
    const auto reply = model.write(channel, toData(hex));
    return reply ? hexString(*reply) : "none";
  }
  std::string file(const std::string& hex) { return answer(Channel::recorder, hex); }
  std::vector<Bytes> packets(const std::string& request) {
    EXPECT_EQ(file(request), "none");
    std::vector<Bytes> all;
    while (auto packet = model.nextPacket()) all.push_back(std::move(packet->value));
    return all;
  }

  std::shared_ptr<MemoryStore> store = std::make_shared<MemoryStore>(10);
  RecorderModel model{store};
};

std::string zeros(std::size_t bytes) { return std::string(2 * bytes, '0'); }

TEST(RecorderModel, AnswersQueries) {
  Recorder recorder;
  recorder.model.setBatteryLevel(0x12345664);
  recorder.model.setReplyFilter([&](const Bytes&, const Bytes& reply) {
    recorder.model.setVersion({0, 1, 2, 3});  // a filter may change the model
    return std::optional(reply);
  });
  const std::tuple<Channel, std::string, std::string> cases[]{
      {Channel::status, battery, "99ec3a00b2" + zeros(15) + "03" + zeros(3) + "64563412" + zeros(4)},
      {Channel::firmware, "8e42455354", "8f4245535400010203230e1acf"},
      {Channel::recorder, "0182010000", "01820800020000000a000000"},
      {Channel::recorder, "1382020000", "1382040000000000"},
      {Channel::recorder, infoOf10,
       "0282240001000000" + zeros(2) + "0200" + zeros(16) + "180511091e01" + "03" + zeros(5)},
      {Channel::recorder, "028204000c0000000d5c8560", "02822400" + zeros(36)},
  };
  for (const auto& [channel, request, reply] : cases) {
    EXPECT_EQ(recorder.answer(channel, request), reply) << request;
    std::string damaged = request;
    damaged.back() = damaged.back() == '0' ? '1' : '0';
    EXPECT_EQ(recorder.answer(channel, damaged), "none") << damaged;
    EXPECT_EQ(recorder.answer(channel, request + "00"), "none") << "with a byte too many: " << request;
  }
  EXPECT_EQ(recorder.answer(Channel::recorder, battery), "none") << "on the wrong channel";
}

TEST(RecorderModel, DeletesOnlyTheFirstRecordingAndGivesNoIdTwice) {
  Recorder recorder;
  const auto result = [&](const std::string& request) { return recorder.file(request).substr(0, 16); };
  EXPECT_EQ(recorder.file(deletion11), "04820800010000000b000000");
  EXPECT_EQ(result("048204000c0000000d5c8560"), "0482080002000000");
  recorder.file(download10);
  EXPECT_EQ(result(deletion10), "0482080003000000");
  recorder.model.linkLost();
  EXPECT_EQ(result(deletion10), "0482080000000000");
  EXPECT_EQ(result(deletion10), "0482080002000000");
  EXPECT_EQ(recorder.file("0182010000"), "01820800010000000b000000");
  EXPECT_EQ(result(deletion11), "0482080000000000");
  EXPECT_EQ(result(deletion11), "0482080004000000");
  EXPECT_EQ(recorder.file("0182010000"), "01820800ffffffffffffffff");
  EXPECT_EQ(recorder.store->firstId(), 12U);
}

TEST(RecorderModel, StreamsFromTheOffsetAndEndsWithTheMarkerWhereAShortPacketDoesNot) {
  Recorder recorder;
  const std::string end = "03825c00ffffffff", full = "03825c0054000000";
  const std::tuple<std::string, bool, std::size_t, std::string, std::string> cases[]{
      {download10, false, 781, full + "0000000007", "03825c00100000000c030000"},  // 65536 = 780 * 84 + 16
      {download10, true, 782, full + "0000000007", end},
      {download10From32768, false, 391, full + "0000000089", "03825c0008000000"},      // 32768 = 390 * 84 + 8
      {"03820c00000000000a000000acff00007266abd3", false, 2, full + "00000000", end},  // the last 84 bytes
      {"03820c00000000000a0000000000010063c59573", false, 1, end, end},                // none left
  };
  for (const auto& [request, alwaysMarker, count, first, last] : cases) {
    recorder.model.setAlwaysEndMarker(alwaysMarker);
    const auto packets = recorder.packets(request);
    ASSERT_EQ(packets.size(), count) << request;
    EXPECT_TRUE(hexString(packets.front()).starts_with(first)) << request;
    EXPECT_TRUE(hexString(packets.back()).starts_with(last)) << request;
  }
}

TEST(RecorderModel, AStreamEndsWithTheLinkOrWithTheNextRequest) {
  Recorder recorder;
  recorder.file(download10);
  recorder.model.nextPacket();
  EXPECT_EQ(hexString(recorder.packets(download11).front()).substr(16, 12), "000000000707");
  recorder.file(download10);
  recorder.file("03820c00000000000c00000000000000a5fde1ac");
  EXPECT_FALSE(recorder.model.streaming()) << "no such recording: nothing to send";
  recorder.file(download10);
  EXPECT_TRUE(recorder.model.streaming());
  recorder.model.linkLost();
  EXPECT_EQ(recorder.model.nextPacket(), std::nullopt);
}

TEST(RecorderModel, SurvivesRandomFrames) {
  Recorder recorder;
  std::mt19937 random(20240517);
  const std::string seeds[] = {battery,      infoOf10, deletion11, download10,           "8e42455354",
                               "0182010000", "9701",   "9000",     "804245535400040000", "8242455354",
                               "85",         "88"};
  for (int i = 0; i < 20000; ++i) {
    Bytes frame = toData(seeds[random() % std::size(seeds)]);
    frame.resize(random() % 30);
    if (!frame.empty()) frame[random() % frame.size()] = static_cast<std::uint8_t>(random());
    if (const auto reply = recorder.model.write(static_cast<Channel>(random() % 3), frame)) {
      EXPECT_GE(reply->size(), 2U);
    }
    recorder.model.nextPacket();
  }
  EXPECT_EQ(recorder.store->count(), 2U);
}

}  // namespace
}  // namespace kwtsdk::sim
