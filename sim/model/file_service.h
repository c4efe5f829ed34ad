#pragma once

#include <cstdint>
#include <optional>

#include "sim/model/device_state.h"
#include "sim/model/download_stream.h"
#include "sim/model/service.h"

namespace kwtsdk::sim {

/// The file store's commands (group 82): count, info, download, notice, deletion.
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

  Bytes count() const;
  Bytes info(std::uint32_t id) const;
  Bytes remove(std::uint32_t id);
  std::uint32_t tryToRemove(std::uint32_t id);
  void startDownload(const Bytes& frame);

  const DeviceState& device_;
  std::optional<DownloadStream> download_;
};

}  // namespace kwtsdk::sim
