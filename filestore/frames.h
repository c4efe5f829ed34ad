#pragma once

#include <cstdint>

#include <kwtsdk/bytes.h>

namespace kwtsdk::internal {

// The file store's commands: code, 82, payload length (16-bit), payload, and where the payload varies the
// CRC-32 of length and payload. Ids and offsets travel as their low 32 bits.

Bytes countRequest();
Bytes infoRequest(std::int64_t fileId);

/// `offset` in bytes.
Bytes downloadRequest(std::int64_t fileId, std::uint64_t offset);
Bytes downloadNotice();
Bytes deleteRequest(std::int64_t fileId);

}  // namespace kwtsdk::internal
