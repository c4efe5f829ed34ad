// A melody on its way from the microphone over the link into a file, and from there into WAV and MP3, as
// another program reads them.

#include <gtest/gtest.h>

#include <cstdlib>

#include <kwtsdk/opus/opus_file_converter.h>
#include <kwtsdk/sim/simulated_recorder.h>

#include "sim/samples/microphones.h"
#include "sim/samples/sounds.h"
#include "tests/opus/recordings.h"
#include "tests/support/sim_host.h"
#include "tests/support/temporary_folder.h"
#include "tests/support/thrown_by.h"
#include "tools/note_detector.h"

namespace kwtsdk {
namespace {

using namespace std::chrono_literals;

// Also how long it is: players take that of an MP3 from what the converter writes before the sound.
TEST(Melody, IsHeardInWhatItsRecordingIsConvertedTo) {
  const testing::TemporaryFolder folder;
  const auto scheduler = sim::VirtualTimeScheduler::create(1);
  scheduler->run([&] {
    testing::SimHost host(scheduler, {.latency = 2ms, .connectionInterval = 7500us});
    host.model->setMicrophone(sim::melodyMicrophone());
    host.helper->startRecordWithType(0, folder.file("live"), host.outcome.completion());
    ASSERT_EQ(host.outcome.ended(), "ok");
    scheduler->sleep(12s);
    host.helper->stopRecord(nullptr);
    scheduler->sleep(1s);
    EXPECT_FALSE(host.helper->completionBlock() || host.helper->writeDataBlock());
  });
  sim::writeOpusFile(folder.file("ogg"), sim::melody(), 1);
  const auto converter = opus::opusFileConverter(nullptr);
  for (const std::string input : {"live", "ogg"}) {
    const std::string in = folder.file(input), wav = folder.file("a.wav"), mp3 = folder.file("a.mp3"),
                      decoded = folder.file("b.wav");
    ASSERT_EQ(converter->opus2wav(in.c_str(), wav.c_str()), 0);
    const sim::WavSound sound = sim::readWavFile(wav);
    auto expected = tool::notesIn(sim::melody(), sim::kSampleRate);
    if (input == "live") expected.pop_back();  // cut short by the stop
    for (const int rate : {0, 8, 24, 64, 160}) {
      ASSERT_EQ(rate == 0 ? 0 : converter->opus2mp3(in.c_str(), mp3.c_str(), rate), 0);
      const std::string decode =
          "ffmpeg -nostdin -y -loglevel error -i " + (rate == 0 ? wav : mp3) + " " + decoded;
      ASSERT_EQ(std::system(decode.c_str()), 0);
      const sim::WavSound heard = sim::readWavFile(decoded);
      EXPECT_EQ(heard.sampleRate, rate == 0 ? sound.sampleRate : 16000);
      EXPECT_EQ(heard.samples.size(), sound.samples.size() * static_cast<std::size_t>(heard.sampleRate) /
                                          static_cast<std::size_t>(sound.sampleRate))
          << input << rate;
      auto notes = tool::notesIn(heard.samples, heard.sampleRate);
      notes.resize(expected.size());
      EXPECT_EQ(notes, expected) << rate;
    }
  }
  const std::string mp3 = testing::contentOf(folder.file("a.mp3")), size = mp3.substr(25, 4);
  EXPECT_EQ(testing::number({size.rbegin(), size.rend()}, 0, 4), mp3.size());
  EXPECT_EQ(tool::notesIn(sim::chord(), sim::kSampleRate), std::vector<std::string>(10, "?"));
}

#ifdef KWTSDK_OPUS_IS_INSTALLED
TEST(Melody, IsHeardInAFolderWithoutASoundOfItsOwn) {
  const testing::TemporaryFolder folder;
  const auto open = [&] {
    const auto recorder =
        sim::openSimulatedRecorder(sim::VirtualTimeScheduler::create(1), folder.path()).model;
    recorder->write(sim::Channel::recorder, {1, 0x81, 1, 0, 0});
    recorder->recordPacket();
    recorder->nextPacket();
    EXPECT_EQ(recorder->nextPacket()->value.size(), 84U);  // of silence it has 7 bytes
  };
  EXPECT_EQ(testing::thrownBy([&] { open(); }), "nothing");
  std::filesystem::create_directory(folder.file("device"));
  testing::writeFile(folder.file("device/microphone.wav"), "RIFF");
  EXPECT_NE(testing::thrownBy([&] { open(); }).find("microphone.wav is no WAV file"), std::string::npos);
}
#endif

}  // namespace
}  // namespace kwtsdk
