#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "platform/opus/input_file.h"

namespace kwtsdk::internal {

/// What an Ogg Opus stream begins with.
struct OpusHeader {
  int channels = 1;
  std::uint32_t preSkip = 0;  // samples at 48 kHz, before the sound begins
  int gain = 0;               // in 1/256 dB

  /// Why the recording of `path` cannot be converted is in the ConversionFailure that this throws.
  static OpusHeader of(std::span<const std::uint8_t> packet, const std::string& path);
};

/// What is said of a file without a header that can be read.
ConversionFailure damagedHeaders(const std::string& path);

/// Of a comment header; empty when there is none, or the packet is something else.
std::string titleIn(std::span<const std::uint8_t> packet);

bool isOpusHeader(std::span<const std::uint8_t> packet);
bool isCommentHeader(std::span<const std::uint8_t> packet);

}  // namespace kwtsdk::internal
