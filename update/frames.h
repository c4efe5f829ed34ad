#pragma once

#include <cstdint>

#include <kwtsdk/bytes.h>

namespace kwtsdk::internal {

// The firmware channel's commands: an opcode, in most of them the letters BEST, fields, and a CRC-32 where
// the fields vary.

Bytes prepareRequest();
Bytes selectionRequest();

/// Sizes and offsets in bytes; their low 32 bits are sent.
Bytes resumeRequest(std::int64_t segmentSize, std::uint64_t offset);
Bytes beginRequest(const Bytes& image);

/// Of an image under 4 bytes the identity is missing: the frame is 4 bytes shorter, its length field is not.
Bytes configRequest(const Bytes& image);

Bytes dataRequest(const Bytes& packet);
Bytes checkRequest(const Bytes& segment);
Bytes byeRequest();
Bytes doneRequest();

}  // namespace kwtsdk::internal
