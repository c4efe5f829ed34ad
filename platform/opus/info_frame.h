#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace kwtsdk::internal {

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

}  // namespace kwtsdk::internal
