#include "sim/model/recording_service.h"

#include <utility>

namespace kwtsdk::sim {

std::optional<Bytes> RecordingService::handle(const Bytes& frame) {
  const auto command = wire::readRecordingCommand(frame);
  if (!command) return std::nullopt;  // a query beside the recording may have crossed the end as well
  const bool justEnded = std::exchange(justEndedByDevice_, false);
  if (command->orStop && (running_ || justEnded)) {
    stop(frame);
  } else {
    start(frame, command->type);
  }
  return std::nullopt;
}

void RecordingService::start(const Bytes& request, wire::RecordingType type) {
  if (device_.inCall != (type == wire::RecordingType::ofCall)) {
    using enum wire::StartRefusal;
    outgoing_.push_back({request, wire::refusedEvent(device_.inCall ? inCall : notInCall)});
    return;
  }
  outgoing_.push_back({request, wire::startedEvent(type)});
  running_ = Running{request, device_.microphone, Duration(0)};
  running_->microphone->start();
  endAsPlanned();
}

/// The host's stop may cross the end that the device sent: that stop gets its answer, but no second end.
void RecordingService::stop(const Bytes& request) {
  outgoing_.push_back({request, wire::stopReply()});
  if (running_) outgoing_.push_back({request, wire::endEvent(wire::kEndedByHost)});
  running_.reset();
}

void RecordingService::recordPacket() {
  if (!running_) return;
  outgoing_.push_back({running_->request, wire::audioPacket(running_->microphone->nextPacket())});
  running_->length += Microphone::kPacketDuration;
  endAsPlanned();
}

void RecordingService::endAsPlanned() {
  for (const wire::Ending* const ending : wire::kEndings) {
    const auto& after = device_.recordingEnds.*ending->after;
    if (!running_ || !after || running_->length < *after) continue;
    if (ending == &wire::kByCall) {
      setInCall(true);  // which ends no recording of a call
    } else {
      end(*ending);
    }
  }
}

void RecordingService::setInCall(bool inCall) {
  if (std::exchange(device_.inCall, inCall) != inCall && inCall) end(wire::kByCall);
}

void RecordingService::end(const wire::Ending& ending) {
  if (!running_) return;
  outgoing_.push_back({running_->request, wire::endEvent(ending.reason)});
  running_.reset();
  justEndedByDevice_ = true;
}

std::optional<Bytes> RecordingService::nextPacket() {
  if (outgoing_.empty()) return std::nullopt;
  Bytes packet = std::move(outgoing_.front().value);
  outgoing_.pop_front();
  return packet;
}

void RecordingService::linkLost() {
  running_.reset();
  outgoing_.clear();
  justEndedByDevice_ = false;
}

}  // namespace kwtsdk::sim
