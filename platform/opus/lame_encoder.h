#pragma once

#include <lame/lame.h>

#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>

namespace kwtsdk::internal {

constexpr int kMp3SampleRate = 16000;

struct LameRelease {
  void operator()(lame_t encoder) const { lame_close(encoder); }
};
using LameEncoder = std::unique_ptr<std::remove_pointer_t<lame_t>, LameRelease>;

/// Whether MP3 at kMp3SampleRate knows the bit rate.
bool isMp3BitRate(std::int32_t kilobitsPerSecond);
/// The bit rates, for a person.
std::string mp3BitRates();

/// An encoder with the settings of every conversion to MP3: constant bit rate, mono, no tags of its own.
LameEncoder makeLameEncoder(int sampleRate, int channels, int kilobitsPerSecond);

}  // namespace kwtsdk::internal
