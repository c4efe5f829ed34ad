#include "sim/model/file_service.h"

#include <algorithm>
#include <utility>

namespace kwtsdk::sim {

DownloadStream::DownloadStream(const DeviceState& device, Bytes request, std::uint32_t id,
                               std::uint32_t offset)
    : device_(device), request_(std::move(request)), id_(id), position_(offset) {
  size_ = RecordingStore::kBlockSize * device_.store->info(id_ - device_.store->firstId()).blocks;
}

Bytes DownloadStream::next() {
  if (position_ >= size_) {
    finished_ = true;
    return wire::endMarker(packetNumber_++);
  }
  const auto count = static_cast<std::size_t>(std::min<std::uint64_t>(wire::kPacketData, size_ - position_));
  Bytes packet = wire::dataPacket(packetNumber_++, count);
  fill(std::span(packet).subspan(wire::kPacketHead, count));
  // A host takes a short packet for the last; only after a full one it needs to be told.
  finished_ = count < wire::kPacketData && !device_.alwaysEndMarker;
  return packet;
}

void DownloadStream::fill(std::span<std::uint8_t> data) {
  while (!data.empty()) {
    if (aheadUsed_ == ahead_.size()) readAhead();
    const std::size_t length = std::min(data.size(), ahead_.size() - aheadUsed_);
    std::ranges::copy(std::span(ahead_).subspan(aheadUsed_, length), data.begin());
    data = data.subspan(length);
    aheadUsed_ += length;
    position_ += length;
  }
}

void DownloadStream::readAhead() {
  const RecordingStore& store = *device_.store;
  ahead_.resize(static_cast<std::size_t>(std::min(RecordingStore::kBlockSize, size_ - position_)));
  aheadUsed_ = 0;
  store.read(id_ - store.firstId(), position_, ahead_);
}

std::optional<Bytes> FileService::handle(const Bytes& frame) {
  using enum wire::FileRequest::Kind;
  const auto request = wire::readFileRequest(frame);
  if (!request) return std::nullopt;
  switch (request->kind) {
    case count:
      return wire::countReply(device_.store->count(), device_.store->firstId());
    case info:
      return infoOf(request->id);
    case notice:
      return wire::noticeReply();
    case deletion:
      return wire::deletionReply(remove(request->id), request->id);
    case download:
      startDownload(frame, *request);
  }
  return std::nullopt;
}

std::optional<Bytes> FileService::nextPacket() {
  if (!download_) return std::nullopt;
  try {
    Bytes packet = download_->next();
    if (download_->finished()) download_.reset();
    return packet;
  } catch (const std::runtime_error&) {  // zeros would be taken for the recording, which is then deleted
    unreadable_ = download_->id();
    download_.reset();
    return std::nullopt;
  }
}

std::optional<std::size_t> FileService::indexOf(std::uint32_t id) const {
  const std::size_t index = id - device_.store->firstId();
  if (id < device_.store->firstId() || index >= device_.store->count()) return std::nullopt;
  return index;
}

Bytes FileService::infoOf(std::uint32_t id) const {
  const auto index = indexOf(id);
  return wire::infoReply(index ? std::optional(device_.store->info(*index)) : std::nullopt);
}

wire::Deletion FileService::remove(std::uint32_t id) {
  using enum wire::Deletion;
  if (device_.store->count() == 0) return storeEmpty;
  const auto index = indexOf(id);
  if (!index) return noSuchId;
  if (*index != 0) return notTheFirst;
  if (unreadable_ == id || (download_ && download_->id() == id)) return inUse;
  return device_.store->deleteFirst() ? done : inUse;
}

void FileService::startDownload(const Bytes& frame, const wire::FileRequest& request) {
  download_.reset();
  unreadable_.reset();
  if (indexOf(request.id)) download_.emplace(device_, frame, request.id, request.offset);
}

}  // namespace kwtsdk::sim
