#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/model/firmware_wire.h"
#include "sim/model/service.h"

namespace kwtsdk::sim {

/// The recorder's side of a firmware update. A step out of turn is refused and changes nothing, but prepare,
/// which starts again at any time. Nothing is kept of an update that the link does not survive.
class FirmwareUpdate {
 public:
  explicit FirmwareUpdate(FirmwareState& firmware) : firmware_(firmware) {}

  std::optional<Bytes> handle(const Bytes& frame);
  void reset();

 private:
  struct Received {
    Bytes bytes;
    wire::Announcement announced;
    std::size_t segmentAt = 0;  // where the bytes begin that no check has confirmed
    Bytes identity;
  };

  std::optional<Bytes> answer(const wire::StepForm& form, const Bytes& frame);
  const UpdateTrouble* troubleAt(UpdateStep step) const;
  bool isDue(UpdateStep step) const;
  bool take(UpdateStep step, const Bytes& frame);
  bool announce(const wire::Announcement& announced);
  void receive(std::span<const std::uint8_t> data);
  bool segmentIsRight(const Bytes& check) const;
  void endSegment(bool right);
  bool imageIsRight() const;
  std::uint16_t offeredMtu() const;
  void install();

  FirmwareState& firmware_;
  UpdateStep due_ = UpdateStep::prepare;  // check: data too, and bye; bye: it has been said
  std::size_t checks_ = 0;
  Received received_;
};

/// The firmware channel: the version query, and updates.
class FirmwareService : public Service {
 public:
  explicit FirmwareService(FirmwareState& firmware) : firmware_(firmware), update_(firmware) {}
  std::optional<Bytes> handle(const Bytes& frame) override;
  void linkLost() override { update_.reset(); }

 private:
  const FirmwareState& firmware_;
  FirmwareUpdate update_;
};

}  // namespace kwtsdk::sim
