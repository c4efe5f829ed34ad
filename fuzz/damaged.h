#pragma once

#include <algorithm>
#include <vector>

#include <kwtsdk/bytes.h>

#include "tests/support/choices.h"

namespace kwtsdk::fuzz {

inline Bytes anyBytes(testing::Choices& choices) {
  Bytes bytes(choices.below(64));
  for (auto& byte : bytes) byte = static_cast<std::uint8_t>(choices.below(256));
  return bytes;
}

/// What arrives instead of a notification: mostly itself.
inline std::vector<Bytes> arriving(testing::Choices& choices, const Bytes& value) {
  if (value.empty() || choices.below(128) != 1) return {value};
  Bytes damaged = value;
  damaged[choices.below(value.size())] ^= static_cast<std::uint8_t>(choices.below(256));
  const Bytes cut(value.begin(), value.begin() + static_cast<std::ptrdiff_t>(choices.below(value.size())));
  const std::vector<Bytes> ways[]{{},    {value, value}, {anyBytes(choices), value}, {anyBytes(choices)},
                                  {cut}, {damaged}};
  return ways[choices.below(std::size(ways))];
}

}  // namespace kwtsdk::fuzz
