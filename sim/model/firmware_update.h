#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "sim/model/firmware_state.h"
#include "sim/model/service.h"
#include "sim/model/update_steps.h"

namespace kwtsdk::sim {

/// The recorder's side of a firmware update. A step out of turn is refused and changes nothing, but prepare,
/// which starts again at any time. Nothing is kept of an update that the link does not survive.
class FirmwareUpdate : public Service {
 public:
  explicit FirmwareUpdate(FirmwareState& firmware) : firmware_(firmware) {}

  std::optional<Bytes> handle(const Bytes& frame) override;
  void linkLost() override { reset(); }

 private:
  struct Received {
    Bytes bytes;
    std::size_t announced = 0;
    std::uint32_t crc = 0;
    std::size_t segmentAt = 0;  // where the bytes begin that no check has confirmed
    Bytes identity;
  };

  std::optional<Bytes> answer(const StepForm& form, const Bytes& frame);
  const UpdateTrouble* troubleAt(UpdateStep step) const;
  bool isDue(UpdateStep step) const;
  bool take(UpdateStep step, const Bytes& frame);
  bool announce(const Bytes& frame);
  void receive(std::span<const std::uint8_t> data);
  bool segmentIsRight(const Bytes& check) const;
  void endSegment(bool right);
  bool imageIsRight() const;
  Bytes offer() const;
  void install();
  void reset();

  FirmwareState& firmware_;
  UpdateStep due_ = UpdateStep::prepare;  // check: data too, and bye; bye: it has been said
  std::size_t checks_ = 0;
  Received received_;
};

}  // namespace kwtsdk::sim
