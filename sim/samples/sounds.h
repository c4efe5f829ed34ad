#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <vector>

namespace kwtsdk::sim {

inline constexpr int kSampleRate = 16000;
using Samples = std::vector<std::int16_t>;

/// 12 s, 5 s and 20 s of audible tones.
Samples melody();
Samples chord();
Samples sweep();

/// The sample rates that Opus takes.
inline constexpr std::array<int, 5> kOpusSampleRates{8000, 12000, 16000, 24000, 48000};

struct WavSound {
  Samples samples;  // one channel, at least one sample
  int sampleRate;   // one of kOpusSampleRates
};

/// Reads 16-bit PCM, mono or stereo (mixed down), as far as it is there: programs that write into a pipe
/// leave a wrong length in the header. Throws std::runtime_error whose text says what the file is instead and
/// how to make a right one.
WavSound readWavFile(const std::filesystem::path& path);

}  // namespace kwtsdk::sim
