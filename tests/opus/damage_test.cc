#include <gtest/gtest.h>

#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;

using Records = std::vector<std::string>;

std::string with(Records records, std::size_t index, const std::string& record) {
  records[index] = record;
  return joined(records);
}

std::string with(Records records, std::size_t index, std::size_t at, int byte) {
  records[index][at] = static_cast<char>(byte);
  return joined(records);
}

struct LiveDamage {
  const char* name;
  std::string content;
  std::size_t packets, damaged;
};

std::vector<LiveDamage> damagesOf(const Records& r) {  // 50 of them
  const std::string whole = joined(r), empty("\x50\x01\0\0", 4), noFrames("\x50\x01\2\0\x4b\0", 6);
  return {{"last record cut", whole.substr(0, whole.size() - 3), 49, 1},
          {"last header cut", whole + "\x50", 50, 1},
          {"tail of an older recording", whole + r[7].substr(9) + r[8] + r[9], 53, 1},
          {"junk before", "junk" + whole, 50, 1},
          {"much junk between", with(r, 10, r[10] + std::string(70000, 'P')), 51, 1},
          {"huge length", with(r, 10, 3, 0xFF), 50, 1},
          {"length beyond the next record", with(r, 10, 2, r[10][2] + 7), 50, 1},
          {"no mark", with(r, 10, 0, 0), 50, 1},
          {"empty packet", with(r, 10, empty), 50, 1},
          {"packet of no frames", with(r, 10, noFrames), 50, 1},
          {"first packet bad", with(r, 0, noFrames), 49, 1},
          {"packets bad here and there", with(r, 20, r[20] + empty + r[20] + noFrames), 53, 2}};
}

TEST(DamagedLiveRecording, KeepsItsGoodPacketsAndTheirTime) {
  const TemporaryFolder folder;
  for (const LiveDamage& damage : damagesOf(liveRecords(50))) {
    SCOPED_TRACE(damage.name);
    const auto result = wavOf(folder, damage.content);
    EXPECT_TRUE(result.status == 0 && result.source == Source::liveRecording) << result.text;
    EXPECT_EQ(result.frames, damage.packets * kPacketFrames);
    EXPECT_EQ(result.damagedPackets, damage.damaged);
    EXPECT_TRUE(isWav(contentOf(folder.file("out")), 16000, result.frames));
  }
}

TEST(DamagedOggFile, GivesWhatCanBeDecoded) {
  const TemporaryFolder folder;
  const std::string whole = oggOpus(600);  // of several pages
  const std::size_t frames = 3 * 600 * kPacketFrames, secondPage = whole.find("OggS", whole.size() / 2);
  std::string flipped = whole, padded = whole;
  flipped[secondPage + 1000] = static_cast<char>(flipped[secondPage + 1000] ^ 1);
  padded.resize((whole.size() / 32768 + 1) * 32768);
  const struct {
    const char* name;
    std::string content;
    std::size_t least, most;
    bool isDamaged;
  } cases[] = {{"padded", padded, frames, frames, false},
               {"cut", whole.substr(0, whole.size() / 2), frames / 4, frames / 2, false},
               {"one bit", flipped, frames / 2, frames - 1, true},
               {"page missing", std::string(whole).erase(secondPage, 5000), frames / 2, frames - 1, true},
               {"chained", whole + oggOpus(50, 2), frames + 48000, frames + 48000, false}};
  for (const auto& c : cases) {
    const auto result = wavOf(folder, c.content);
    EXPECT_EQ(result.status, 0) << c.name << ": " << result.text;
    EXPECT_TRUE(result.frames >= c.least && result.frames <= c.most) << c.name << ": " << result.frames;
    EXPECT_EQ(result.damagedPackets > 0, c.isDamaged) << c.name;
  }
}

TEST(DamagedOggFile, WithoutSoundIsAFailure) {
  const TemporaryFolder folder;
  const std::string whole = oggOpus(50);
  std::string badHeader = whole;
  badHeader[30] = 'x';
  for (const std::string& content : {whole.substr(0, 60), whole.substr(0, 150), badHeader}) {
    EXPECT_EQ(wavOf(folder, content).status, -1);
  }
  EXPECT_EQ(namesIn(folder.path()), std::vector<std::string>{"in"});
}

}  // namespace
}  // namespace kwtsdk::opus
