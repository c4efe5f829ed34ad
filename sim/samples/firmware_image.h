#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <random>
#include <stdexcept>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// A firmware image, the same each time: noise that ends with the version and one more byte. Throws
/// std::invalid_argument for fewer than 4 bytes. Here in full, so that it needs no Opus encoder.
inline Bytes firmwareImage(std::size_t size, std::array<std::uint8_t, 3> version) {
  if (size <= version.size()) throw std::invalid_argument("a firmware image has at least 4 bytes");
  Bytes image(size);
  std::mt19937 random(20240517);
  std::ranges::generate(image, [&random] { return static_cast<std::uint8_t>(random() >> 24); });
  std::ranges::copy(version, image.end() - 4);
  return image;
}

}  // namespace kwtsdk::sim
