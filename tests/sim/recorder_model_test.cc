#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "sim/byte_order.h"
#include "sim/model/wire.h"
#include "tests/support/sim_host.h"

namespace kwtsdk::sim {
namespace {

using internal::hexString;
using internal::toData;
using namespace testing;

Bytes downloadOf(std::uint32_t id, std::size_t offset) {
  Bytes frame{0x03, 0x82, 12, 0, 0, 0, 0, 0};
  for (const std::size_t value : {std::size_t{id}, offset}) appendLittle32(frame, value);
  appendLittle32(frame, wire::crc32(std::span(frame).subspan(2)));
  return frame;
}

/// Two recordings, of two blocks and of one; the first has id 10.
struct Recorder {
  Recorder() {
    store->add(recordingOf(40000), std::chrono::local_days(2024y / 5 / 17) + 9h + 30min + 1s, 3);
    store->add(Bytes(100, 7));
  }
  std::string answer(Channel channel, const std::string& hex) {
    const auto reply = model.write(channel, toData(hex));
    return reply ? hexString(*reply) : "none";
  }
  void ask(const Bytes& download) { EXPECT_EQ(model.write(Channel::recorder, download), std::nullopt); }

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
      {Channel::status, "99ec2a02b20a0001000000000000001003a34083df",
       "99ec3a00b2" + zeros(15) + "03" + zeros(3) + "64563412" + zeros(4)},
      {Channel::firmware, "8e42455354", "8f4245535400010203230e1acf"},
      {Channel::recorder, "0182010000", "01820800020000000a000000"},
      {Channel::recorder, "1382020000", "1382040000000000"},
      {Channel::recorder, "028204000a000000d103ee45",
       "0282240001000000" + zeros(2) + "0200" + zeros(16) + "180511091e01" + "03" + zeros(5)},
      {Channel::recorder, "028204000c0000000d5c8560", "02822400" + zeros(36)},
  };
  for (const auto& [channel, request, reply] : cases) {
    std::string damaged = request;
    damaged.back() = damaged.back() == '0' ? '1' : '0';
    EXPECT_EQ(recorder.answer(channel, damaged), "none") << damaged;
    EXPECT_EQ(recorder.answer(channel, request + "00"), "none") << "with a byte too many: " << request;
    for (const auto other : {Channel::status, Channel::recorder, Channel::firmware}) {
      EXPECT_EQ(recorder.answer(other, request), other == channel ? reply : "none") << request;
    }
  }
}

TEST(RecorderModel, StreamsFromTheOffsetAndEndsWithTheMarkerWhereAShortPacketDoesNot) {
  Recorder recorder;
  Bytes stored = recordingOf(40000);
  stored.resize(65536);
  // The offset, whether the marker is always sent, and whether it is.
  const std::tuple<std::size_t, bool, bool> cases[]{{0, false, false},
                                                    {0, true, true},
                                                    {32768, false, false},
                                                    {stored.size() - wire::kPacketData, false, true},
                                                    {stored.size(), false, true}};
  for (const auto& [offset, always, expected] : cases) {
    recorder.model.setAlwaysEndMarker(always);
    recorder.ask(downloadOf(10, offset));
    Bytes received;
    std::uint32_t number = 0, valid = 0;
    while (const auto packet = recorder.model.nextPacket()) {
      EXPECT_TRUE(hexString(packet->value).starts_with("0382"));
      EXPECT_TRUE(packet->value.size() == wire::kPacketSize && little32(packet->value, 8) == number++);
      valid = little32(packet->value, 4);
      if (valid != 0xFFFFFFFF) append(received, std::span(packet->value).subspan(12, valid));
    }
    EXPECT_TRUE(std::ranges::equal(received, std::span(stored).subspan(offset))) << offset;
    EXPECT_EQ(valid == 0xFFFFFFFF, expected) << offset;
  }
  recorder.ask(downloadOf(10, 0));
  recorder.ask(downloadOf(11, 0));  // which takes its place
  EXPECT_EQ(hexString(recorder.model.nextPacket()->value).substr(16, 12), "000000000707");
  recorder.ask(downloadOf(12, 0));
  EXPECT_FALSE(recorder.model.streaming()) << "no such recording: nothing to send";
}

/// Does what the words say and gives what the recorder sent meanwhile, in words again.
std::string sent(RecorderModel& model, const std::string& steps) {
  const std::map<std::string, std::string> frames{{"start0", "0181010000"}, {"start1", "0281010000"},
                                                  {"start2", "0381010000"}, {"start3", "0481010000"},
                                                  {"toggle", "0081010000"}, {"count", "0182010000"},
                                                  {"broken", "0181010001"}, {"unknown", "0581010000"}};
  const std::map<std::string, std::string> packets{
      {"1280040000005400", "started0"},  {"1280040000015400", "started1"}, {"1280040000025400", "started2"},
      {"1280040000035400", "started3"},  {"1280040000045400", "started4"}, {"1280040000105400", "inCall"},
      {"1280040000115400", "notInCall"}, {"0080010000", "stopped"},        {"0801000100", "endByHost"},
      {"0801001100", "endByKey"},        {"0801002100", "endByCall"},      {"50010300b8fffe", "sound"}};
  std::istringstream words(steps);
  for (std::string word; words >> word;) {
    if (const auto frame = frames.find(word); frame != frames.end()) {
      model.write(Channel::recorder, toData(frame->second));
    } else if (word == "key" || word == "lost") {
      word == "key" ? model.pressKey() : model.linkLost();
    } else if (word == "call" || word == "hangUp") {
      model.setInCall(word == "call");
    } else if (word.starts_with("keyAfter")) {
      model.setKeyAfter(1ms * std::stoi(word.substr(8)));
    } else if (word.starts_with("callAfter")) {
      model.setCallAfter(1ms * std::stoi(word.substr(9)));
    } else {
      for (int i = std::stoi(word) / 20; i > 0; --i) model.recordPacket();
    }
  }
  std::string all;
  while (const auto packet = model.nextPacket()) {
    const std::string hex = hexString(packet->value);
    const auto known = packets.find(hex);
    all.append(" ").append(known == packets.end() ? hex : known->second);
  }
  return all;
}

TEST(RecordingService, AnswersByItsState) {
  std::istringstream cases(
      R"(20:;start0 40 toggle 20: started0 sound sound stopped endByHost;start1 start3 20: started1 started3 sound;
toggle 20 toggle toggle: started4 sound stopped endByHost started4;broken unknown 20 count:;
start2 start0 start2 20: notInCall started0 notInCall sound;key toggle: started4;start0 key count toggle: started0 endByKey started4;
call start0 toggle start2 call 20 hangUp 20 toggle: inCall inCall started2 sound sound stopped endByHost;
start0 20 key key 20 toggle toggle: started0 sound endByKey stopped started4;
start0 call toggle toggle: started0 endByCall stopped inCall;start0 20 lost 20 toggle: started4;start0 key lost toggle: started4;
start0 key start1 20 toggle: started0 endByKey started1 sound stopped endByHost;
keyAfter30 start0 100 start1 100: started0 sound sound endByKey started1 sound sound endByKey;
keyAfter0 start0 toggle: started0 endByKey stopped;
callAfter20 start0 100 start0 start2 20: started0 sound endByCall inCall started2 sound)");
  for (std::string steps, expected; std::getline(std::getline(cases, steps, ':'), expected, ';');) {
    RecorderModel model(std::make_shared<MemoryStore>());
    EXPECT_EQ(sent(model, steps), expected) << steps;
  }
}

}  // namespace
}  // namespace kwtsdk::sim
