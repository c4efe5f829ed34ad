#pragma once

#include <array>
#include <cstddef>

namespace kwtsdk::internal {

/// MPEG-2 layer III, which is what MP3 at 16 kHz is: bit rates in kbit/s by their index in the frame header
/// less one, and the size of frames.
constexpr std::array<int, 14> kMpegBitRates{8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr std::size_t kMpegFrameSamples = 576;

constexpr std::size_t mpegFrameSize(int kilobitsPerSecond, int sampleRate) {
  return kMpegFrameSamples / 8 * 1000 * static_cast<std::size_t>(kilobitsPerSecond) /
         static_cast<std::size_t>(sampleRate);
}

}  // namespace kwtsdk::internal
