// A melody on its way from the microphone over the link into a file, and from there into WAV and MP3, as
// another program reads them.

#include <gtest/gtest.h>

#include <cstdlib>

#include <kwtsdk/opus/opus_file_converter.h>

#include "sim/samples/microphones.h"
#include "sim/samples/sounds.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "tools/note_detector.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;

void recordMelody(const std::string& path) {
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    testing::SimHost host(scheduler, {.latency = 2ms, .connectionInterval = 7500us});
    host.model->setMicrophone(sim::melodyMicrophone());
    host.helper->startRecordWithType(0, path, host.outcome.completion());
    ASSERT_EQ(host.outcome.ended(), "ok");
    scheduler->sleep(12s);
    host.helper->stopRecord(nullptr);
    scheduler->sleep(1s);
    EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
  });
}

TEST(Melody, IsHeardInWhatItsRecordingIsConvertedTo) {
  const testing::TemporaryFolder folder;
  recordMelody(folder.file("live"));
  const auto helper =
      KWTBluetoothHelper::create({nullptr, nullptr, opus::opusFileConverter(nullptr), nullptr});
  auto expected = tool::notesIn(sim::melody(), sim::kSampleRate);
  expected.pop_back();  // cut short by the stop
  for (const auto& [name, type, accuracy] :
       {std::tuple("a.wav", OpusConvertTypeWav, 0), {"a.mp3", OpusConvertTypeMp3, 800}}) {
    ASSERT_TRUE(helper->decodeOpusFile(folder.file("live"), folder.file(name), type));
    const std::string decode = "ffmpeg -nostdin -y -loglevel error -i ", decoded = folder.file("b.wav");
    ASSERT_EQ(std::system((decode + folder.file(name) + " " + decoded).c_str()), 0);
    const sim::WavSound sound = sim::readWavFile(decoded);
    EXPECT_EQ(sound.sampleRate, 16000);
    EXPECT_NEAR(static_cast<double>(sound.samples.size()),
                static_cast<double>(sim::readWavFile(folder.file("a.wav")).samples.size()), accuracy);
    auto heard = tool::notesIn(sound.samples, sound.sampleRate);
    heard.resize(expected.size());
    EXPECT_EQ(heard, expected) << name;
  }
  EXPECT_EQ(tool::notesIn(sim::chord(), sim::kSampleRate), std::vector<std::string>(10, "?"));
}

}  // namespace
}  // namespace kwtsdk
