// A melody on its way from the microphone over the link into a file, and from there into WAV and MP3; other
// programs read what came out.

#include <gtest/gtest.h>

#include <cstdio>
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

/// What a program prints; "" when it fails.
std::string printedBy(const std::string& command) {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(::popen(command.c_str(), "r"), ::pclose);
  std::string text;
  for (int c = std::fgetc(pipe.get()); c != EOF; c = std::fgetc(pipe.get())) text += static_cast<char>(c);
  return text;
}

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
  const std::string live = folder.file("live"), wav = folder.file("a.wav"), mp3 = folder.file("a.mp3"),
                    decoded = folder.file("b.wav");
  recordMelody(live);
  const auto helper =
      KWTBluetoothHelper::create({nullptr, nullptr, opus::opusFileConverter(nullptr), nullptr});
  ASSERT_TRUE(helper->decodeOpusFile(live, wav, OpusConvertTypeWav));
  ASSERT_TRUE(helper->decodeOpusFile(live, mp3, OpusConvertTypeMp3));

  // The last half-second is cut short by the stop.
  auto expected = tool::notesIn(sim::melody(), sim::kSampleRate);
  expected.pop_back();
  const auto heardIn = [&](const sim::WavSound& sound) {
    auto notes = tool::notesIn(sound.samples, sound.sampleRate);
    notes.resize(expected.size());
    return notes;
  };
  const sim::WavSound sound = sim::readWavFile(wav);
  EXPECT_EQ(heardIn(sound), expected);
  EXPECT_EQ(printedBy("ffprobe -v error -of csv=p=0 -show_entries "
                      "stream=codec_name,sample_rate,channels,duration_ts " +
                      wav),
            "pcm_s16le,16000,1," + std::to_string(sound.samples.size()).append("\n"));

  ASSERT_EQ(std::system(("ffmpeg -nostdin -loglevel error -i " + mp3 + " " + decoded).c_str()), 0);
  const sim::WavSound again = sim::readWavFile(decoded);
  EXPECT_EQ(again.sampleRate, 16000);
  EXPECT_EQ(heardIn(again), expected);
  EXPECT_NEAR(static_cast<double>(again.samples.size()), static_cast<double>(sound.samples.size()),
              0.05 * 16000);
}

}  // namespace
}  // namespace kwtsdk
