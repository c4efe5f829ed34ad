#pragma once

#include <cstddef>
#include <span>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// An image ends with its identity: three numbers of the version and a byte that is not part of it.
inline constexpr std::size_t kIdentitySize = 4;
inline constexpr std::size_t kSmallestImage = kIdentitySize, kGreatestImage = std::size_t{64} << 20;

inline bool isImageSize(std::size_t size) { return size >= kSmallestImage && size <= kGreatestImage; }

/// As the configuration carries it: the last byte is 0.
inline Bytes identityOf(std::span<const std::uint8_t> image) {
  const auto end = image.last(kIdentitySize);
  return {end[0], end[1], end[2], 0};
}

/// As the version query sends it.
inline Bytes versionOf(std::span<const std::uint8_t> image) {
  const auto end = image.last(kIdentitySize);
  return {0, end[0], end[1], end[2]};
}

}  // namespace kwtsdk::sim
