#include "sim/model/recording_service.h"

#include <utility>

#include "sim/model/wire.h"

namespace kwtsdk::sim {

namespace {

constexpr std::size_t kCommandSize = 5;
enum Type : std::uint8_t { callRecording = 2, ambientRecording = 4 };
enum Refusal : std::uint8_t { isInCall = 0x10, isNotInCall = 0x11 };
enum EndReason : std::uint8_t { byHost = 0x01, byKey = 0x11, byCall = 0x21 };

bool isCommand(const Bytes& frame) {
  return frame.size() == kCommandSize && frame[0] <= ambientRecording &&
         frame == Bytes{frame[0], 0x81, 0x01, 0x00, 0x00};
}

Bytes statusOf(std::uint8_t result) { return {0x12, 0x80, 0x04, 0x00, 0x00, result, 0x54, 0x00}; }
Bytes endOf(std::uint8_t reason) { return {0x08, 0x01, 0x00, reason, 0x00}; }

Bytes audioOf(const Bytes& opus) {
  Bytes packet{0x50, 0x01, 0x00, 0x00};
  putLittle16(packet, 2, static_cast<std::uint32_t>(opus.size()));
  packet.insert(packet.end(), opus.begin(), opus.end());
  return packet;
}

}  // namespace

std::optional<Bytes> RecordingService::handle(const Bytes& frame) {
  const bool justEnded = std::exchange(justEndedByDevice_, false);
  if (!isCommand(frame)) return std::nullopt;
  // Code 0 is both the stop and the start of an ambient recording.
  if (frame[0] != 0) {
    start(frame, static_cast<std::uint8_t>(frame[0] - 1));
  } else if (current_ || justEnded) {
    stop(frame);
  } else {
    start(frame, ambientRecording);
  }
  return std::nullopt;
}

void RecordingService::start(const Bytes& request, std::uint8_t type) {
  if (device_.inCall != (type == callRecording)) {
    outgoing_.push_back({request, statusOf(device_.inCall ? isInCall : isNotInCall)});
    return;
  }
  outgoing_.push_back({request, statusOf(type)});
  current_ = Recording{request, device_.microphone, Duration(0)};
  current_->microphone->start();
  endAsPlanned();
}

/// The host's stop may cross the end that the device sent: that stop gets its answer, but no second end.
void RecordingService::stop(const Bytes& request) {
  outgoing_.push_back({request, {0x00, 0x80, 0x01, 0x00, 0x00}});
  if (current_) outgoing_.push_back({request, endOf(byHost)});
  current_.reset();
}

void RecordingService::recordPacket() {
  if (!current_) return;
  outgoing_.push_back({current_->request, audioOf(current_->microphone->nextPacket())});
  current_->length += Microphone::kPacketDuration;
  endAsPlanned();
}

void RecordingService::endAsPlanned() {
  const auto reached = [this](const std::optional<Duration>& length) {
    return current_ && length && current_->length >= *length;
  };
  if (reached(device_.keyAfter)) pressKey();
  if (reached(device_.callAfter)) setInCall(true);
}

void RecordingService::pressKey() { endByDevice(byKey); }

void RecordingService::setInCall(bool inCall) {
  if (std::exchange(device_.inCall, inCall) != inCall && inCall) endByDevice(byCall);
}

void RecordingService::endByDevice(std::uint8_t reason) {
  if (!current_) return;
  outgoing_.push_back({current_->request, endOf(reason)});
  current_.reset();
  justEndedByDevice_ = true;
}

std::optional<Bytes> RecordingService::nextPacket() {
  if (outgoing_.empty()) return std::nullopt;
  Bytes packet = std::move(outgoing_.front().value);
  outgoing_.pop_front();
  return packet;
}

void RecordingService::linkLost() {
  current_.reset();
  outgoing_.clear();
  justEndedByDevice_ = false;
}

}  // namespace kwtsdk::sim
