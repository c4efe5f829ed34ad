#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>

#include <kwtsdk/export.h>

namespace kwtsdk::sim {

/// What the recorder tells of one recording.
struct RecordingInfo {
  std::uint16_t blocks = 0;                 // of 32768 bytes, the last one padded with zeros
  std::chrono::local_seconds created = {};  // by the recorder's own clock, which shows local time
  std::uint8_t type = 0;
};

/// The recordings on a simulated recorder, oldest first. Their ids are consecutive from firstId on, never 0,
/// and are not used again. The model calls a store from one thread at a time.
class KWTSDK_EXPORT RecordingStore {
 public:
  static constexpr std::uint64_t kBlockSize = 32768;
  static constexpr std::size_t kMaximumCount = 0xFFFE;  // the count FFFF says "none" on the wire

  virtual ~RecordingStore();
  virtual std::uint32_t firstId() const = 0;
  virtual std::size_t count() const = 0;

  /// `index` counts from 0 and must be below count().
  virtual RecordingInfo info(std::size_t index) const = 0;

  /// Fills `into` with the recording's bytes from `offset` on; zeros beyond its end. Throws
  /// std::runtime_error when they cannot be read: the recorder then stops sending and does not delete that
  /// recording.
  virtual void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const = 0;

  /// False when the first recording could not be removed; then nothing has changed.
  virtual bool deleteFirst() = 0;
};

}  // namespace kwtsdk::sim
