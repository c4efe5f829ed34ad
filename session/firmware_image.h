#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>

#include <kwtsdk/bytes.h>
#include <kwtsdk/session/errc.h>
#include <kwtsdk/session/result.h>

namespace kwtsdk::session::detail {

/// The image in a file. fileUnusable when that cannot be read; imageRefused when it is plainly something
/// else, too short, too long, or has a tail that no packet can carry whatever the MTU.
Result<Bytes> readImage(const std::filesystem::path& file);

/// How many bytes of the image the packet at `position` has, when `inSegment` bytes of its segment have been
/// sent. Within the image if checkTail() has nothing against it.
std::size_t packetSize(std::int64_t mtu, std::uint64_t imageSize, std::uint64_t position,
                       std::size_t inSegment);

/// imageRefused when the image's last bytes are too few for a packet. Each segment begins with a new packet,
/// none of which is shorter than wire::kSmallestPacket unless the segment ends with it. What remains behind
/// the last whole packet therefore has to be nothing, a smallest packet or more, or the end of a whole
/// segment.
std::optional<Failure> checkTail(const std::filesystem::path& file, std::uint64_t imageSize,
                                 std::int64_t mtu);

}  // namespace kwtsdk::session::detail
