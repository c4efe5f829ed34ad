#pragma once

#include <filesystem>

#include "sim/samples/tones.h"

namespace kwtsdk::sim {

struct WavSound {
  Samples samples;  // one channel, at least one sample
  int sampleRate;   // one of kOpusSampleRates
};

/// Reads 16-bit PCM, mono or stereo (mixed down), as far as it is there: programs that write into a pipe
/// leave a wrong length in the header. Throws std::runtime_error whose text says what the file is instead and
/// how to make a right one.
WavSound readWavFile(const std::filesystem::path& path);

}  // namespace kwtsdk::sim
