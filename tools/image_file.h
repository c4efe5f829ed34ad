#pragma once

#include <cstdint>
#include <string>

#include "tools/failure.h"

namespace kwtsdk::tool {

/// The size of a firmware image. Throws a Failure when the file cannot be read, or not be one that a recorder
/// can be sent whatever its MTU.
std::uint64_t imageSize(const std::string& path);

/// Of an image whose last `tail` bytes no packet can carry.
Failure unsendable(const std::string& path, std::uint64_t size, std::uint64_t tail);

}  // namespace kwtsdk::tool
