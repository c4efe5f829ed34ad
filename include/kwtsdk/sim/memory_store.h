#pragma once

#include <deque>
#include <mutex>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// Recordings in memory, for tests. Safe on any thread.
class KWTSDK_EXPORT MemoryStore : public RecordingStore {
 public:
  explicit MemoryStore(std::uint32_t firstId = 1) : firstId_(firstId) {}

  /// Adds the newest recording. Throws std::length_error when it is larger than 65535 blocks or the store is
  /// full.
  void add(Bytes content, std::chrono::local_seconds created = {}, std::uint8_t type = 0);

  std::uint32_t firstId() const override;
  std::size_t count() const override;
  RecordingInfo info(std::size_t index) const override;
  void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const override;
  bool deleteFirst() override;

 private:
  struct Recording {
    Bytes content;
    RecordingInfo info;
  };
  mutable std::mutex mutex_;
  std::uint32_t firstId_;
  std::deque<Recording> recordings_;
};

}  // namespace kwtsdk::sim
