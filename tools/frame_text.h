#pragma once

#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk::tool {

enum class Direction { toRecorder, fromRecorder };

/// Bytes as "01 82 FF", of many the first ones and how many there are.
std::string bytesShown(const Bytes& bytes);

/// What a frame on the characteristic says, in a few words; "" when that is not known.
std::string meaningOf(const Uuid& characteristic, Direction direction, const Bytes& frame);

}  // namespace kwtsdk::tool
