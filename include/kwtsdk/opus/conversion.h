#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include <kwtsdk/export.h>

namespace kwtsdk::opus {

/// What a recording was recognised as, by its content.
enum class Source {
  oggOpus,        // a file of the recorder's store, or the beginning of one
  liveRecording,  // records 50 01, length (16 bits, little-endian), one Opus packet of 16 kHz mono sound
};

enum class Format {
  wav,  // 16-bit PCM: 16 kHz mono of a live recording, 48 kHz mono or stereo of an Ogg Opus file
  mp3,  // constant bit rate, 16 kHz mono
};

struct ConversionResult {
  static constexpr std::int32_t kConverted = 0;
  static constexpr std::int32_t kFailed = -1;
  static constexpr std::int32_t kCancelled = -2;

  std::int32_t status = kConverted;
  std::string text;                  // what happened and what to do; empty when converted
  std::optional<Source> source;      // none when the input was not recognised
  std::uint64_t frames = 0;          // samples per channel that were decoded, at sampleRate
  int sampleRate = 0;                // of the decoded sound, in Hz
  std::uint64_t damagedPackets = 0;  // packets, pages and gaps that were concealed or left out
};

/// Whether MP3 of 16 kHz can have it: 8, 16, 24, 32, 40, 48, 56, 64, 80, 96, 112, 128, 144 or 160.
KWTSDK_EXPORT bool isMp3BitRate(std::int32_t kilobitsPerSecond) noexcept;

/// Called on the converting thread about once per second of sound, with the share that is done, 0 to 1. False
/// cancels.
using ConversionProgress = std::function<bool(double fraction)>;

/// Converts a recording on the calling thread; blocks until it is done, with memory of a fixed size. Damaged
/// and incomplete recordings give what can be decoded of them. `kilobitsPerSecond` is the bit rate of MP3
/// and not used for WAV; `progress` may be empty.
///
/// The output appears, or replaces a regular file, at once and complete: whatever ends a conversion before
/// that leaves the path as it was. Of a symbolic link the target is replaced. It has the time of the
/// recording's file and, of an Ogg Opus file, its title.
///
/// Fails (kFailed, and nothing is thrown) when the input cannot be read, is neither kind of recording or
/// holds no sound; when the output is the input, is no regular file or cannot be written; for another bit
/// rate; for a WAV file over 4 GiB; when memory runs out; and when `progress` throws.
KWTSDK_EXPORT ConversionResult convert(const std::string& input, const std::string& output, Format format,
                                       std::int32_t kilobitsPerSecond, const ConversionProgress& progress);

}  // namespace kwtsdk::opus
