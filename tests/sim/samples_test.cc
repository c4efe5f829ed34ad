#include <gtest/gtest.h>

#include "sim/samples/microphones.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thrown_by.h"

namespace kwtsdk::sim {
namespace {

using namespace testing;

std::string little(std::uint32_t value, std::size_t size) {
  std::string bytes;
  for (std::size_t i = 0; i < size; ++i) bytes += static_cast<char>(i < 4 ? value >> 8 * i : 0);
  return bytes;
}

std::string chunk(const std::string& id, const std::string& content) {
  return id + little(static_cast<std::uint32_t>(content.size()), 4) + content +
         std::string(content.size() % 2, '\0');
}

std::string format(std::uint32_t tag, std::uint32_t channels, std::uint32_t rate, std::uint32_t bits) {
  return little(tag, 2) + little(channels, 2) + little(rate, 4) + little(0, 6) + little(bits, 2);
}

std::string wav(const std::string& chunks) { return chunk("RIFF", "WAVE" + chunks); }

TEST(WavFile, IsReadAsFarAsItIsThereOrNamedWithTheWayOut) {
  const TemporaryFolder folder;
  const auto fmt = [](const std::string& content) { return chunk("fmt ", content); };
  const auto with = [&](const std::string& content) { return wav(fmt(content) + chunk("data", "sound!")); };
  const std::string mono = fmt(format(1, 1, 16000, 16)), stereo = fmt(format(1, 2, 48000, 16)),
                    extensible = fmt(format(0xFFFE, 1, 8000, 16) + little(22, 8) + little(1, 16)),
                    sound = little(1, 2) + little(0x8000, 2) + little(5, 2), data = chunk("data", sound);
  const std::pair<std::string, std::string> cases[]{
      {wav(mono + chunk("LIST", "odd") + data + chunk("LIST", "xx")), "16000: 1 -32768 5 "},
      {wav(stereo + data), "48000: -16383 "},
      {wav(extensible + data), "8000: 1 -32768 5 "},
      {wav(mono + "data" + little(0xFFFFFFFF, 4) + sound), "16000: 1 -32768 5 "},
      {"", "is no WAV file: make one with  sox "},
      {"RIFX    WAVE", "is no WAV file"},
      {wav(data), "is damaged: it ends before its sound"},
      {wav("junk\xFF\xFF\xFF\xFF"), "is damaged: it ends before its sound"},
      {wav("fmt "), "is damaged: it ends before its sound"},
      {with("short"), "is damaged: its format is cut short"},
      {wav(mono + chunk("data", "x")), "holds no sound"},
      {with(format(1, 2, 16000, 24)),
       "holds 24-bit PCM, 2 channels, 16000 Hz; a microphone takes 16-bit PCM"},
      {with(format(1, 1, 44100, 16)), "holds 16-bit PCM, 1 channel, 44100 Hz"},
      {with(format(1, 0, 16000, 16)), "holds 16-bit PCM, 0 channels"},
      {with(format(1, 65535, 0xFFFFFFFF, 16)), "holds 16-bit PCM, 65535 channels"},
      {with(format(3, 1, 16000, 32)), "holds 32-bit floating point"},
      {with(format(0xFFFE, 1, 16000, 16)), "holds encoded sound"},
  };
  const auto read = [&folder](const std::string& name) {
    std::string text;
    const std::string failure = thrownBy([&] {
      const WavSound wav = readWavFile(folder.file(name));
      text = std::to_string(wav.sampleRate) + ": ";
      for (const int sample : wav.samples) text += std::to_string(sample) + " ";
    });
    return text.empty() ? failure.substr(folder.file(name).size() + 1) : text;
  };
  for (const auto& [content, expected] : cases) {
    writeFile(folder.file("a.wav"), content);
    EXPECT_EQ(read("a.wav").substr(0, expected.size()), expected);
  }
  EXPECT_EQ(read("none").substr(0, 28), "cannot be read (No such file");
  EXPECT_TRUE(read(".").starts_with("cannot be read (not a regular file)"));
}

TEST(Microphones, BeginAnewWithEachRecordingAndTakeWhatOpusTakes) {
  for (const auto& microphone : {melodyMicrophone(), opusMicrophone(Samples(480, 8000), 48000)}) {
    std::vector<Bytes> packets[2];
    for (auto& recording : packets) {
      microphone->start();
      while (recording.size() < 40) recording.push_back(microphone->nextPacket());
    }
    EXPECT_TRUE(packets[0] == packets[1]);
    EXPECT_EQ(packets[0].back().size(), 80U);
  }
  EXPECT_THROW(opusMicrophone({}, 16000), std::invalid_argument);
  EXPECT_THROW(opusMicrophone({1}, 44100), std::invalid_argument);
}

}  // namespace
}  // namespace kwtsdk::sim
