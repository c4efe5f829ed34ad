#include <kwtsdk/sim/memory_store.h>

#include <algorithm>
#include <stdexcept>

#include "sim/store/block_count.h"

namespace kwtsdk::sim {

void MemoryStore::add(Bytes content, std::chrono::local_seconds created, std::uint8_t type) {
  const auto blocks = blockCount(content.size());
  const std::lock_guard lock(mutex_);
  if (!blocks || recordings_.size() == kMaximumCount) {
    throw std::length_error("the recording does not fit on the simulated recorder");
  }
  recordings_.push_back({std::move(content), {*blocks, created, type}});
}

std::uint32_t MemoryStore::firstId() const {
  const std::lock_guard lock(mutex_);
  return firstId_;
}

std::size_t MemoryStore::count() const {
  const std::lock_guard lock(mutex_);
  return recordings_.size();
}

RecordingInfo MemoryStore::info(std::size_t index) const {
  const std::lock_guard lock(mutex_);
  return recordings_.at(index).info;
}

void MemoryStore::read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const {
  const std::lock_guard lock(mutex_);
  const Bytes& content = recordings_.at(index).content;
  const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(offset, content.size()));
  const std::size_t length = std::min(into.size(), content.size() - begin);
  const auto source = std::span(content).subspan(begin, length);
  std::ranges::copy(source, into.begin());
  std::ranges::fill(into.subspan(length), std::uint8_t{0});
}

bool MemoryStore::deleteFirst() {
  const std::lock_guard lock(mutex_);
  if (recordings_.empty()) return false;
  recordings_.pop_front();
  firstId_ = idAfter(firstId_);
  return true;
}

}  // namespace kwtsdk::sim
