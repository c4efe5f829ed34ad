#include <gtest/gtest.h>

#include <iostream>

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/sim/seed.h>

#include "sim/virtual_time/random.h"
#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;

std::string noise(sim::Random& random, std::size_t size) {
  std::string bytes(size, '\0');
  for (char& byte : bytes) byte = static_cast<char>(random.next());
  return bytes;
}

std::string mutated(sim::Random& random, const std::vector<std::string>& originals) {
  if (random.below(50) == 0) return noise(random, random.below(300));
  std::string bytes = originals[random.below(originals.size())];
  for (std::uint64_t left = random.below(5); left-- > 0;) {
    const std::size_t at = random.below(bytes.size() + 1);
    const std::string& other = originals[random.below(originals.size())];
    const std::function<void()> changes[]{
        [&] { bytes.resize(at); },
        [&] { bytes.erase(at, random.below(100)); },
        [&] { bytes.insert(at, noise(random, random.below(100))); },
        [&] { bytes.insert(at, std::string(random.below(3000), '\0')); },
        [&] { bytes.insert(at, kMark + noise(random, 2)); },  // a record of any length
        [&] { bytes = bytes.substr(0, at) + other.substr(random.below(other.size() + 1)); },
    };
    const std::uint64_t change = random.below(8);
    if (change < std::size(changes)) {
      changes[change]();
    } else if (at < bytes.size()) {
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << random.below(8)));
    }
  }
  return bytes;
}

TEST(Fuzz, EveryInputIsConvertedOrRefused) {
  constexpr int inputs = 10000;
  const std::uint64_t seed = sim::seedFromEnvironment(20240517);
  std::cout << "KWTSDK_SEED=" << seed << '\n';
  sim::Random random(seed);
  // With the same serial number a splice stays in one stream, otherwise it begins another.
  const std::vector<std::string> originals{joined(liveRecords(6)), joined(liveRecords(2)), oggOpus(4),
                                           oggOpus(3), oggOpus(2, 2)};
  const TemporaryFolder folder;
  int converted = 0;
  for (int i = 0; i < inputs && !::testing::Test::HasFailure(); ++i) {
    // Some file systems wait for the disk when a file is truncated and written again.
    for (const char* name : {"in", "out"}) std::filesystem::remove(folder.file(name));
    writeFile(folder.file("in"), mutated(random, originals));
    const Format format = random.below(10) == 0 ? Format::mp3 : Format::wav;
    const auto result = convert(folder.file("in"), folder.file("out"), format, 24, {});
    const bool isDone = result.status >= 0;
    EXPECT_EQ(namesIn(folder.path()), isDone ? (Names{"in", "out"}) : Names{"in"});
    EXPECT_EQ(result.text.empty(), isDone);
    if (isDone) {
      ++converted;
      const std::string out = contentOf(folder.file("out"));
      EXPECT_GT(result.frames, 0U);
      EXPECT_TRUE(format == Format::mp3 ? out.size() % 108 == 0
                                        : isWav(out, result.sampleRate, result.frames, number(out, 22, 2)));
    }
    if (result.source == Source::liveRecording) RecordingMeter(folder.file("in")).read();
    if (HasFailure()) std::cout << "input " << i << ": " << result.text << '\n';
  }
  EXPECT_GT(converted, inputs / 3);
}

}  // namespace
}  // namespace kwtsdk::opus
