#pragma once

#include <memory>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::sim {

/// Recordings in memory, for tests. Safe on any thread.
class KWTSDK_EXPORT MemoryStore : public RecordingStore {
 public:
  explicit MemoryStore(std::uint32_t firstId = 1);
  ~MemoryStore() override;

  /// Adds the newest recording. Throws std::length_error when it is larger than 65535 blocks or the store is
  /// full.
  void add(Bytes content, std::chrono::local_seconds created = {}, std::uint8_t type = 0);

  std::uint32_t firstId() const override;
  std::size_t count() const override;
  RecordingInfo info(std::size_t index) const override;
  void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const override;
  bool deleteFirst() override;

 private:
  struct Impl;
  const std::unique_ptr<Impl> impl_;
};

}  // namespace kwtsdk::sim
