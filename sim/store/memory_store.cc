#include <kwtsdk/sim/memory_store.h>

#include <algorithm>
#include <deque>
#include <stdexcept>
#include <utility>

#include "platform/threads/mutex.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

using internal::MutexLock;

RecordingStore::~RecordingStore() = default;

struct MemoryStore::Impl {
  struct Entry {
    Bytes content;
    RecordingInfo info;
  };

  mutable internal::Mutex mutex;
  std::uint32_t firstId KWT_GUARDED_BY(mutex);
  std::deque<Entry> recordings KWT_GUARDED_BY(mutex);
};

MemoryStore::MemoryStore(std::uint32_t firstId) : impl_(std::make_unique<Impl>()) {
  impl_->firstId = firstId;
}

MemoryStore::~MemoryStore() = default;

void MemoryStore::add(Bytes content, std::chrono::local_seconds created, std::uint8_t type) {
  const auto blocks = wire::blocksOf(content.size());
  const MutexLock lock(impl_->mutex);
  if (!blocks || impl_->recordings.size() == kMaximumCount) {
    throw std::length_error("the recording does not fit on the simulated recorder");
  }
  impl_->recordings.push_back({std::move(content), {*blocks, created, type}});
}

std::uint32_t MemoryStore::firstId() const {
  const MutexLock lock(impl_->mutex);
  return impl_->firstId;
}

std::size_t MemoryStore::count() const {
  const MutexLock lock(impl_->mutex);
  return impl_->recordings.size();
}

RecordingInfo MemoryStore::info(std::size_t index) const {
  const MutexLock lock(impl_->mutex);
  return impl_->recordings.at(index).info;
}

void MemoryStore::read(std::size_t index, std::uint64_t offset, std::span<std::uint8_t> into) const {
  const MutexLock lock(impl_->mutex);
  const Bytes& content = impl_->recordings.at(index).content;
  const auto begin = static_cast<std::size_t>(std::min<std::uint64_t>(offset, content.size()));
  const std::size_t length = std::min(into.size(), content.size() - begin);
  const auto source = std::span(content).subspan(begin, length);
  std::ranges::copy(source, into.begin());
  std::ranges::fill(into.subspan(length), std::uint8_t{0});
}

bool MemoryStore::deleteFirst() {
  const MutexLock lock(impl_->mutex);
  if (impl_->recordings.empty()) return false;
  impl_->recordings.pop_front();
  impl_->firstId = wire::idAfter(impl_->firstId);
  return true;
}

}  // namespace kwtsdk::sim
