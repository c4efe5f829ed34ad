#include "platform/opus/sample_conversion.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <numeric>

namespace kwtsdk::internal {

void toSixteenBits(std::span<const float> from, std::span<std::int16_t> to) {
  constexpr float scale = 32768, least = -32768, most = 32767;
  // Added to a sample it leaves the rounded value in the lowest bits. Rounding functions are calls, which
  // cannot be made for several samples at once.
  constexpr float rounder = 12582912;  // 1.5 * 2^23
  constexpr auto rounderBits = std::bit_cast<std::int32_t>(rounder);
  const float* const in = from.data();
  std::int16_t* const out = to.data();
  for (std::size_t i = 0; i < from.size(); ++i) {
    const float limited = std::min(std::max(in[i] * scale, least), most);
    out[i] = static_cast<std::int16_t>(std::bit_cast<std::int32_t>(limited + rounder) - rounderBits);
  }
}

std::span<float> mixToMono(std::span<float> samples, std::size_t channels) {
  const std::size_t frames = samples.size() / channels;
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const auto all = samples.subspan(frame * channels, channels);
    samples[frame] = std::accumulate(all.begin(), all.end(), 0.0F) / static_cast<float>(channels);
  }
  return samples.first(frames);
}

}  // namespace kwtsdk::internal
