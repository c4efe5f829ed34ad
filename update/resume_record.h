#pragma once

#include <cstdint>
#include <string>

namespace kwtsdk::internal {

/// The settings key under which the confirmed bytes of an image are kept.
inline std::string resumeKey(std::uint32_t imageCrc) {
  return std::string("KWTKey_").append(std::to_string(imageCrc));
}

}  // namespace kwtsdk::internal
