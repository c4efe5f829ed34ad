#pragma once

#include <cstdint>
#include <span>

namespace kwtsdk::internal {

/// Rounds samples of -1 to 1 to 16 bits; louder ones are cut off. `to` has room for as many.
void toSixteenBits(std::span<const float> from, std::span<std::int16_t> to);

/// Averages the channels; returns the part of `samples` that holds the result.
std::span<float> mixToMono(std::span<float> samples, std::size_t channels);

}  // namespace kwtsdk::internal
