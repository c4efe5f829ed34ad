#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/model/service.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

/// One recording on its way to the host, from an offset to its padded end. It reads the store a block at a
/// time, so that its length costs no memory.
class DownloadStream {
 public:
  DownloadStream(const DeviceState& device, Bytes request, std::uint32_t id, std::uint32_t offset);

  std::uint32_t id() const { return id_; }
  const Bytes& request() const { return request_; }
  bool finished() const { return finished_; }

  /// The next packet. Not after the stream has finished.
  Bytes next();

 private:
  void fill(std::span<std::uint8_t> data);
  void readAhead();

  const DeviceState& device_;
  Bytes request_;
  std::uint32_t id_;
  std::uint64_t position_;
  std::uint64_t size_ = 0;
  std::uint32_t packetNumber_ = 0;
  bool finished_ = false;
  Bytes ahead_;
  std::size_t aheadUsed_ = 0;
};

/// The file store's commands: count, info, download, notice, deletion.
class FileService : public Service {
 public:
  explicit FileService(const DeviceState& device) : device_(device) {}

  std::optional<Bytes> handle(const Bytes& frame) override;
  bool streaming() const override { return download_.has_value(); }
  std::optional<Bytes> nextPacket() override;
  Bytes streamRequest() const override { return download_ ? download_->request() : Bytes{}; }
  void linkLost() override { download_.reset(); }

 private:
  /// The recording's place in the store; none when no recording has the id.
  std::optional<std::size_t> indexOf(std::uint32_t id) const;

  Bytes infoOf(std::uint32_t id) const;
  wire::Deletion remove(std::uint32_t id);
  void startDownload(const Bytes& frame, const wire::FileRequest& request);

  const DeviceState& device_;
  std::optional<DownloadStream> download_;
  std::optional<std::uint32_t> unreadable_;  // the recording whose stream the store broke off
};

}  // namespace kwtsdk::sim
