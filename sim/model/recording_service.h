#pragma once

#include <deque>
#include <memory>
#include <optional>

#include "sim/model/service.h"
#include "sim/model/wire.h"

namespace kwtsdk::sim {

/// Live recordings. Answers, audio and ends leave as one sequence of packets: nothing overtakes,
/// so no audio follows an end, and an end that the device decided on precedes the answer to a later command.
class RecordingService : public Service {
 public:
  explicit RecordingService(DeviceState& device) : device_(device) {}

  std::optional<Bytes> handle(const Bytes& frame) override;
  bool streaming() const override { return !outgoing_.empty(); }
  std::optional<Bytes> nextPacket() override;
  Bytes streamRequest() const override { return outgoing_.empty() ? Bytes{} : outgoing_.front().request; }
  void linkLost() override;

  bool recording() const { return running_.has_value(); }

  /// Another Microphone::kPacketDuration of sound has been recorded. Nothing while no recording runs.
  void recordPacket();

  void pressKey() { end(wire::kByKey); }
  void setInCall(bool inCall);

 private:
  struct Packet {
    Bytes request, value;
  };
  struct Running {
    Bytes request;
    std::shared_ptr<Microphone> microphone;
    Duration length{0};
  };

  void start(const Bytes& request, wire::RecordingType type);
  void stop(const Bytes& request);
  void endAsPlanned();
  void end(const wire::Ending& ending);

  DeviceState& device_;
  std::optional<Running> running_;
  std::deque<Packet> outgoing_;
  bool justEndedByDevice_ = false;
};

}  // namespace kwtsdk::sim
