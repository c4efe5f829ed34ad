#include <gtest/gtest.h>

#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;

std::string with(std::vector<std::string> records, std::size_t index, const std::string& record) {
  records[index] = record;
  return joined(records);
}

std::string flipped(std::string bytes, std::size_t at, int bits) {
  bytes[at] = static_cast<char>(bytes[at] ^ bits);
  return bytes;
}

TEST(DamagedLiveRecording, KeepsItsGoodPacketsAndTheirTime) {
  const TemporaryFolder folder;
  const auto r = liveRecords(50);
  const std::string whole = joined(r), empty = kMark + std::string(2, '\0'),
                    noFrames = kMark + std::string("\2\0\x4b\0", 4);
  // What of the recording there is, the packets that this gives, and what is told to be damaged.
  const std::tuple<const char*, std::string, std::size_t, std::size_t> cases[] = {
      {"last record cut", whole.substr(0, whole.size() - 3), 49, 1},
      {"last header cut", whole + kMark[0], 50, 1},
      {"tail of an older recording", whole + r[7].substr(9) + r[8] + r[9], 53, 1},
      {"junk before", "junk" + whole, 50, 1},
      {"much junk between", with(r, 10, r[10] + std::string(70000, kMark[0])), 51, 1},
      {"huge length", with(r, 10, flipped(r[10], 3, 0xFF)), 50, 1},
      {"length beyond the next record", with(r, 10, flipped(r[10], 2, 0x80)), 50, 1},
      {"no mark", with(r, 10, flipped(r[10], 0, kMark[0])), 50, 1},
      {"empty packet", with(r, 10, empty), 50, 1},
      {"packet of no frames", with(r, 10, noFrames), 50, 1},
      {"first packet bad", with(r, 0, noFrames), 49, 1},
      {"packets bad here and there", with(r, 20, r[20] + empty + r[20] + noFrames), 53, 2}};
  for (const auto& [name, content, packets, damaged] : cases) {
    SCOPED_TRACE(name);
    const auto result = wavOf(folder, content);
    EXPECT_TRUE(result.status == 0 && result.source == Source::liveRecording) << result.text;
    EXPECT_EQ(result.frames, packets * kPacketFrames);
    EXPECT_EQ(result.damagedPackets, damaged);
    EXPECT_TRUE(isWav(contentOf(folder.file("out")), 16000, result.frames));
  }
}

TEST(DamagedOggFile, GivesWhatCanBeDecoded) {
  const TemporaryFolder folder;
  const std::string whole = oggOpus(600);  // of several pages
  const std::size_t frames = 3 * 600 * kPacketFrames, secondPage = whole.find("OggS", whole.size() / 2);
  const std::size_t padding = wire::kBlockSize - whole.size() % wire::kBlockSize;
  // The content, the fewest and the most samples (0: no sound, which is a failure), and whether it is
  // damaged.
  const std::tuple<const char*, std::string, std::size_t, std::size_t, bool> cases[] = {
      {"padded", whole + std::string(padding, '\0'), frames, frames, false},
      {"cut", whole.substr(0, whole.size() / 2), frames / 4, frames / 2, false},
      {"one bit", flipped(whole, secondPage + 1000, 1), frames / 2, frames - 1, true},
      {"page missing", std::string(whole).erase(secondPage, 5000), frames / 2, frames - 1, true},
      {"chained", whole + oggOpus(50, 2), frames + 48000, frames + 48000, false},
      {"first header cut", whole.substr(0, 60), 0, 0, false},
      {"second header cut", whole.substr(0, 150), 0, 0, false},
      {"bad header", flipped(whole, 30, 1), 0, 0, false}};
  for (const auto& [name, content, least, most, isDamaged] : cases) {
    std::filesystem::remove(folder.file("out"));
    const auto result = wavOf(folder, content);
    EXPECT_EQ(result.status, most > 0 ? 0 : -1) << name << ": " << result.text;
    EXPECT_TRUE(result.frames >= least && result.frames <= most) << name << ": " << result.frames;
    EXPECT_EQ(result.damagedPackets > 0, isDamaged) << name;
    EXPECT_EQ(namesIn(folder.path()), most > 0 ? (Names{"in", "out"}) : Names{"in"});
  }
}

}  // namespace
}  // namespace kwtsdk::opus
