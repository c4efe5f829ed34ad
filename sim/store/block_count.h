#pragma once

#include <cstdint>
#include <limits>
#include <optional>

#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// The blocks that `size` bytes take; none when they do not fit the 16 bits the recorder has for them.
inline std::optional<std::uint16_t> blockCount(std::uint64_t size) {
  const std::uint64_t blocks =
      size / RecordingStore::kBlockSize + (size % RecordingStore::kBlockSize != 0 ? 1 : 0);
  if (blocks > std::numeric_limits<std::uint16_t>::max()) return std::nullopt;
  return static_cast<std::uint16_t>(blocks);
}

/// The id after `id`: 0 and ids near the "no file" pattern FFFFFFFF are never given.
inline constexpr std::uint32_t kGreatestFirstId = 0x7FFFFFFF;
inline std::uint32_t idAfter(std::uint32_t id) { return id >= kGreatestFirstId ? 1 : id + 1; }

}  // namespace kwtsdk::sim
