#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include <kwtsdk/bytes.h>
#include <kwtsdk/uuid.h>

namespace kwtsdk::sim {

/// As attributes carry it, little-endian: 2 bytes where it has a short form, otherwise 16.
Bytes attUuid(const Uuid& uuid);

/// None unless there are 2 or 16 bytes.
std::optional<Uuid> uuidFromAtt(std::span<const std::uint8_t> bytes);

Uuid shortUuid(std::uint16_t number);

}  // namespace kwtsdk::sim
