#include <gtest/gtest.h>

#include <iostream>

#include <kwtsdk/opus/recording_meter.h>
#include <kwtsdk/sim/seed.h>

#include "sim/virtual_time/random.h"
#include "tests/opus/recordings.h"

namespace kwtsdk::opus {
namespace {

using namespace testing;

class Mutator {
 public:
  Mutator(std::uint64_t seed, std::vector<std::string> originals)
      : random_(seed), originals_(std::move(originals)) {}

  std::string next() {
    if (random_.below(50) == 0) return noise(random_.below(300));
    std::string bytes = original();
    for (std::uint64_t changes = random_.below(5); changes-- > 0;) change(bytes);
    return bytes;
  }
  bool oneIn(std::uint64_t count) { return random_.below(count) == 0; }

 private:
  const std::string& original() { return originals_[random_.below(originals_.size())]; }
  std::size_t placeIn(const std::string& bytes) { return random_.below(bytes.size() + 1); }

  std::string noise(std::size_t size) {
    std::string bytes(size, '\0');
    for (char& byte : bytes) byte = static_cast<char>(random_.next());
    return bytes;
  }

  void change(std::string& bytes) {
    const std::size_t at = placeIn(bytes);
    const std::string& other = original();
    const std::function<void()> changes[]{
        [&] { bytes.resize(at); },
        [&] { bytes.erase(at, random_.below(100)); },
        [&] { bytes.insert(at, noise(random_.below(100))); },
        [&] { bytes.insert(at, std::string(random_.below(3000), '\0')); },
        [&] { bytes.insert(at, "\x50\x01" + noise(2)); },  // a record of any length
        [&] { bytes = bytes.substr(0, at) + other.substr(placeIn(other)); },
    };
    const std::uint64_t change = random_.below(8);
    if (change < std::size(changes)) {
      changes[change]();
    } else if (at < bytes.size()) {
      bytes[at] = static_cast<char>(bytes[at] ^ (1 << random_.below(8)));
    }
  }

  sim::Random random_;
  const std::vector<std::string> originals_;
};

void expectOutput(const TemporaryFolder& folder, const ConversionResult& result, Format format) {
  std::vector<std::string> expected{"in"};
  if (result.status >= 0) expected.emplace_back("out");
  EXPECT_EQ(namesIn(folder.path()), expected);
  EXPECT_EQ(result.text.empty(), result.status >= 0);
  if (result.status < 0) return;
  EXPECT_GT(result.frames, 0U);
  const std::string out = contentOf(folder.file("out"));
  if (format == Format::mp3) {
    EXPECT_EQ(out.size() % 108, 0U);
    return;
  }
  ASSERT_GE(out.size(), 44U);
  EXPECT_EQ(number(out, 4, 4), out.size() - 8);
  EXPECT_EQ(number(out, 40, 4), out.size() - 44);
  EXPECT_EQ(out.size() - 44, result.frames * number(out, 32, 2));
}

TEST(Fuzz, EveryInputIsConvertedOrRefused) {
  constexpr int inputs = 10000;
  const std::uint64_t seed = sim::seedFromEnvironment(20240517);
  std::cout << "KWTSDK_SEED=" << seed << '\n';
  // With the same serial number a splice stays in one stream, otherwise it begins another.
  Mutator mutator(seed,
                  {joined(liveRecords(6)), joined(liveRecords(2)), oggOpus(4), oggOpus(3), oggOpus(2, 2)});
  const TemporaryFolder folder;
  int converted = 0;
  for (int i = 0; i < inputs && !::testing::Test::HasFailure(); ++i) {
    // Some file systems wait for the disk when a file is truncated and written again.
    for (const char* name : {"in", "out"}) std::filesystem::remove(folder.file(name));
    writeFile(folder.file("in"), mutator.next());
    const Format format = mutator.oneIn(10) ? Format::mp3 : Format::wav;
    const auto result = convert(folder.file("in"), folder.file("out"), format, 24, {});
    expectOutput(folder, result, format);
    if (result.status == 0) ++converted;
    if (result.source == Source::liveRecording) RecordingMeter(folder.file("in")).read();
    if (HasFailure()) std::cout << "input " << i << ": " << result.text << '\n';
  }
  EXPECT_GT(converted, inputs / 3);
}

}  // namespace
}  // namespace kwtsdk::opus
