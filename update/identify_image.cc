#include "update/identify_image.h"

#include <array>

#include "codec/hex.h"

namespace kwtsdk::internal {

std::optional<std::string> identifyImage(const Bytes& image) {
  if (image.size() < 4) return std::nullopt;
  const std::uint8_t* const tail = image.data() + image.size() - 4;
  return hexString(std::array<std::uint8_t, 4>{tail[0], tail[1], tail[2], 0});
}

}  // namespace kwtsdk::internal
