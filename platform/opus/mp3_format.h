#pragma once

#include <lame/lame.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <type_traits>
#include <vector>

namespace kwtsdk::internal {

constexpr int kMp3SampleRate = 16000;

/// MPEG-2 layer III, which is what MP3 at 16 kHz is: bit rates in kbit/s by their index in the frame header
/// less one, and the size of frames.
constexpr std::array<int, 14> kMpegBitRates{8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144, 160};
constexpr std::size_t kMpegFrameSamples = 576;

constexpr std::size_t mpegFrameSize(int kilobitsPerSecond, int sampleRate) {
  return kMpegFrameSamples / 8 * 1000 * static_cast<std::size_t>(kilobitsPerSecond) /
         static_cast<std::size_t>(sampleRate);
}

/// CRC-16 of MP3's information frames, going on from `crc`; 0 to begin with.
std::uint16_t crc16(std::uint16_t crc, std::span<const std::uint8_t> bytes);

/// The frame before the sound that tells a player its exact length: what the encoder put before it and behind
/// it. One without a table of positions, which at a constant bit rate nobody needs: LAME's own, with one,
/// does not fit below 40 kbit/s.
struct InfoFrame {
  int kilobitsPerSecond = 0;    // of the sound; a frame of less than 16 has no room, so that is used then
  std::string encoder;          // up to 9 characters
  int lowpass = 0;              // Hz
  int delay = 0, padding = 0;   // samples
  std::uint64_t musicSize = 0;  // bytes of the frames behind this one
  std::uint16_t musicCrc = 0;

  std::size_t size() const;
  std::vector<std::uint8_t> bytes() const;
};

struct LameRelease {
  void operator()(lame_t encoder) const { lame_close(encoder); }
};
using LameEncoder = std::unique_ptr<std::remove_pointer_t<lame_t>, LameRelease>;

/// Throws ConversionFailure when MP3 at kMp3SampleRate does not know the bit rate.
void checkMp3BitRate(std::int32_t kilobitsPerSecond);

/// An encoder with the settings of every conversion to MP3: constant bit rate, mono, no tags of its own.
LameEncoder makeLameEncoder(int sampleRate, int channels, int kilobitsPerSecond);

}  // namespace kwtsdk::internal
