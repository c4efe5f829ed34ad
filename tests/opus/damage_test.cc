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

std::string many(const std::string& record, std::size_t times) {
  std::string all;
  while (times-- > 0) all += record;
  return all;
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
      {"empty packets for hours", with(r, 10, r[10] + many(empty, 100000) + r[10]), 101, 100000},
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

/// The mean difference of the last half-second from that of another WAV file.
double differenceAtEnd(const std::string& wav, const std::string& other) {
  constexpr std::size_t count = 24000;
  std::int64_t sum = 0;
  for (std::size_t i = 1; i <= count; ++i) {
    const auto sampleOf = [i](const std::string& file) {
      return static_cast<std::int16_t>(number(file, file.size() - 2 * i, 2));
    };
    sum += std::abs(sampleOf(wav) - sampleOf(other));
  }
  return static_cast<double>(sum) / count;
}

TEST(DamagedOggFile, KeepsItsLengthAndTellsOfEveryDamagedPage) {
  const TemporaryFolder folder;
  const auto p = pagesOf(oggOpus(600));  // two of headers, and some of sound
  ASSERT_GT(p.size(), 8U);
  const std::string whole = joined(p), tail(wire::kBlockSize - whole.size() % wire::kBlockSize, '\0');
  const auto without = [&](std::size_t index) { return with(p, index, ""); };
  const auto bit = [&](std::size_t index) {
    return with(p, index, flipped(p[index], p[index].size() / 2, 1));
  };
  const std::size_t frames = 3 * 600 * kPacketFrames, last = p.size() - 1, second = 48000;
  wavOf(folder, whole);
  const std::string sound = contentOf(folder.file("out"));
  // The content, the fewest and the most samples (0: a failure), the damaged pages, whether it ends as the
  // whole does.
  const std::tuple<const char*, std::string, std::size_t, std::size_t, std::size_t, bool> cases[] = {
      {"padded", whole + tail, frames, frames, 0, true},
      {"padded by something else", whole + std::string(tail.size(), '\xff'), frames, frames, 0, true},
      {"cut", whole.substr(0, whole.size() / 2), frames / 4, frames / 2, 1, false},
      {"cut between pages", whole.substr(0, whole.rfind("OggS")), frames - 2 * second, frames - 1, 0, false},
      {"one bit", bit(4), frames, frames, 1, true},
      {"a bit of the first sound", bit(2), frames, frames, 1, true},
      {"a bit of the last page", bit(last), frames, frames + 2000, 1, false},
      {"a bit of the title", bit(1), frames, frames, 1, true},
      {"no title", without(1), frames, frames, 1, true},
      {"no first sound", without(2), frames, frames, 1, true},
      {"no page", without(4), frames, frames, 1, true},
      {"no bytes of two pages", std::string(whole).erase(whole.find(p[4]) + 100, p[4].size()), frames, frames,
       2, true},
      {"no mark of the last page", with(p, last, flipped(p[last], 0, 1)), frames - 2 * second, frames - 1, 1,
       false},
      {"junk between", with(p, 4, p[4] + "junk"), frames, frames, 1, true},
      {"chained", whole + oggOpus(50, 2), frames + second, frames + second, 0, false},
      {"chained and damaged", bit(4) + oggOpus(50, 2), frames + second, frames + second, 1, false},
      {"a stream of another kind between",
       with(p, 3, changed(p[0], [](auto& page) { page[14] = page[28] = 9; }) + p[3]), frames, frames, 0,
       true},
      {"first header cut", whole.substr(0, 40), 0, 0, 0, false},
      {"only headers", p[0] + p[1], 0, 0, 0, false},
      {"bad header", bit(0), 0, 0, 0, false}};
  for (const auto& [name, content, least, most, damaged, isSound] : cases) {
    SCOPED_TRACE(name);
    std::filesystem::remove(folder.file("out"));
    const auto result = wavOf(folder, content);
    EXPECT_EQ(result.status, most > 0 ? 0 : -1) << result.text;
    EXPECT_TRUE(result.frames >= least && result.frames <= most) << result.frames;
    EXPECT_EQ(result.damagedPackets, damaged);
    EXPECT_EQ(namesIn(folder.path()), most > 0 ? (Names{"in", "out"}) : Names{"in"});
    EXPECT_TRUE(!isSound || differenceAtEnd(contentOf(folder.file("out")), sound) < 20);
  }
}

TEST(UnusualOggFile, IsRefusedForTheRightReason) {
  const TemporaryFolder folder;
  const auto pages = pagesOf(oggOpus(50));
  const std::tuple<std::size_t, int, const char*> heads[]{{8, 1, ""},
                                                          {8, 15, ""},
                                                          {8, 16, "version 16"},
                                                          {9, 6, "6 channels"},
                                                          {9, 0, "damaged"},
                                                          {18, 2, "mapping family 2"},
                                                          {18, 255, "mapping family 255"},
                                                          {18, 1, "unusual order"}};
  for (const auto& [at, value, says] : heads) {
    SCOPED_TRACE(says);
    const auto content = with(pages, 0, changed(pages[0], [&, place = at, byte = value](std::string& page) {
                                page[28 + place] = static_cast<char>(byte);
                              }));
    const auto result = wavOf(folder, content);
    EXPECT_EQ(result.status, *says == '\0' ? 0 : -1);
    EXPECT_NE(result.text.find(says), std::string::npos) << result.text;
  }
}

}  // namespace
}  // namespace kwtsdk::opus
