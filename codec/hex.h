#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include <kwtsdk/bytes.h>

namespace kwtsdk::internal {

// Frames are composed and replies examined as hex text: two lower-case characters per byte, so that byte n
// stands at character 2n. Integers on the wire are little-endian.

/// Bytes as lower-case hex text.
std::string hexString(std::span<const std::uint8_t> bytes);

/// Hex text of either case as bytes. A pair without a leading digit makes no byte, a digit followed by
/// something else makes a byte of the one digit, and the last character of an odd length is dropped.
Bytes toData(std::string_view text);

Bytes reverse(std::span<const std::uint8_t> bytes);

/// Bytes read most significant first; of more than 8 the last 8 count.
std::uint64_t hexToDecimal(std::span<const std::uint8_t> bytes);

/// The low 32 bits as 8 hex characters, least significant byte first. A longer `length` (hex characters,
/// compared as unsigned) is reached by nzeros in front: the firmware protocol's wide fields carry their value
/// in their last four bytes.
std::string littleEndianHexStringWithLength(std::uint64_t value, std::int64_t length);

/// The form in which most numbers travel: 4 bytes.
inline std::string littleEndian32(std::uint64_t value) { return littleEndianHexStringWithLength(value, 8); }

/// `count` zero characters; one for 0, and for a negative count one zero and blanks up to |count| characters,
/// as printf's field width gives them.
std::string nzeros(std::int32_t count);

/// The little-endian number in `count` hex characters from `position` on; the part beyond the text's end
/// counts as absent, and an absent field is 0.
std::uint64_t littleEndianField(std::string_view text, std::size_t position, std::size_t count);

}  // namespace kwtsdk::internal
