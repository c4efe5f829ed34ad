#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include <kwtsdk/bytes.h>

#include "sim/model/device_state.h"

namespace kwtsdk::sim {

/// One recording on its way to the host, from an offset to its padded end. It reads the store a block at a
/// time, so that its length costs no memory.
class DownloadStream {
 public:
  DownloadStream(const DeviceState& device, Bytes request, std::uint32_t id, std::uint32_t offset);

  std::uint32_t id() const { return id_; }
  const Bytes& request() const { return request_; }
  bool finished() const { return finished_; }

  /// The next packet of 96 bytes. Not after the stream has finished.
  Bytes next();

 private:
  Bytes packet(std::uint32_t validCount);
  void fill(Bytes& packet, std::size_t count);
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

}  // namespace kwtsdk::sim
