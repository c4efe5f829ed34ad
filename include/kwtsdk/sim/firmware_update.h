#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// The steps of a firmware update that the recorder answers, in their order.
enum class UpdateStep { prepare, partition, resume, begin, configuration, check, bye };

/// What goes wrong at a step, in every update.
struct UpdateTrouble {
  UpdateStep step;

  /// No answer, as if the frame had not arrived. Otherwise a refusal; resume and begin have none and are
  /// silent too. A refused check discards its segment.
  bool silent = false;

  /// Which of an update's segment checks, counted from 1, those of repeated segments too.
  std::size_t check = 1;

  bool operator==(const UpdateTrouble&) const = default;
};

/// What a host asked for in a resume verification, in bytes.
struct ResumeVerification {
  std::uint32_t offset, segmentSize;
  bool operator==(const ResumeVerification&) const = default;
};

/// Keeps an image that an update brought; false when it cannot, then the recorder stays with what it had.
using FirmwareSlot = std::function<bool(const Bytes& image)>;

/// Keeps a segment of an image that is on its way, `offset` bytes into it; false when it cannot.
using FirmwareStaging = std::function<bool(std::size_t offset, std::span<const std::uint8_t> segment)>;

}  // namespace kwtsdk::sim
