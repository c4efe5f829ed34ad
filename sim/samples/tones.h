#pragma once

#include <cstdint>
#include <vector>

namespace kwtsdk::sim {

inline constexpr int kSampleRate = 16000;
using Samples = std::vector<std::int16_t>;

/// 12 s, 5 s and 20 s of audible tones.
Samples melody();
Samples chord();
Samples sweep();

}  // namespace kwtsdk::sim
