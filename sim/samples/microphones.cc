#include "sim/samples/microphones.h"

#include <utility>

#include "sim/samples/opus_microphone.h"
#include "sim/samples/tones.h"
#include "sim/samples/wav_file.h"

namespace kwtsdk::sim {

std::shared_ptr<Microphone> melodyMicrophone() { return opusMicrophone(melody(), kSampleRate); }

std::shared_ptr<Microphone> microphoneOf(const std::filesystem::path& wav) {
  WavSound sound = readWavFile(wav);
  return opusMicrophone(std::move(sound.samples), sound.sampleRate);
}

std::shared_ptr<Microphone> microphoneIn(const std::filesystem::path& folder) {
  const auto wav = folder / "device" / "microphone.wav";
  return std::filesystem::exists(wav) ? microphoneOf(wav) : melodyMicrophone();
}

}  // namespace kwtsdk::sim
