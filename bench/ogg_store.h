#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include <kwtsdk/bytes.h>
#include <kwtsdk/scheduler.h>
#include <kwtsdk/sim/recording_store.h>

namespace kwtsdk::bench {

/// One recording of Ogg pages, made as they are read: it needs no memory, however long it is. It stays when
/// it is deleted.
class OggStore : public sim::RecordingStore {
 public:
  explicit OggStore(std::uint16_t blocks);

  std::uint64_t bytes() const { return kBlockSize * blocks_; }

  /// Called before each block is read.
  void setOnRead(std::function<void(std::uint64_t offset)> call) { onRead_ = std::move(call); }

  std::uint32_t firstId() const override { return 1; }
  std::size_t count() const override { return 1; }
  sim::RecordingInfo info(std::size_t) const override;
  void read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const override;
  bool deleteFirst() override {
    deleted_->signal();
    return true;
  }

  void waitUntilDeleted() { deleted_->wait(std::nullopt); }

 private:
  static constexpr std::size_t kPageSize = 4096;

  Bytes page(std::uint32_t number) const;

  const std::uint16_t blocks_;
  const std::shared_ptr<Semaphore> deleted_ = threadScheduler()->semaphore("deleted");
  std::function<void(std::uint64_t)> onRead_;
  Bytes first_, others_;                      // the first page, and the second
  std::array<std::uint32_t, 32> crcOfBit_{};  // of each bit of a page's number alone
};

}  // namespace kwtsdk::bench
