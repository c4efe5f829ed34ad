#include "tools/recording_watch.h"

namespace kwtsdk::tool {
namespace {

const Bytes kInCall{0x12, 0x80, 0x04, 0x00, 0x00, 0x10, 0x54, 0x00};
const Bytes kNotInCall{0x12, 0x80, 0x04, 0x00, 0x00, 0x11, 0x54, 0x00};
const Bytes kEnded{0x08, 0x01, 0x00, 0x01, 0x00};
const Bytes kEndedByKey{0x08, 0x01, 0x00, 0x11, 0x00};
const Bytes kEndedByCall{0x08, 0x01, 0x00, 0x21, 0x00};

bool isAnswerToStop(const Bytes& value) { return value.size() >= 2 && value[0] == 0x00 && value[1] == 0x80; }

}  // namespace

RecordingWatch::RecordingWatch(Scheduler& scheduler)
    : started_(scheduler, "kwt.record.start"),
      stopped_(scheduler, "kwt.record.stop"),
      ended_(scheduler, "kwt.record.end") {}

void RecordingWatch::onNotification(const Bytes& value) {
  if (value == kInCall || value == kNotInCall) {
    const std::lock_guard lock(mutex_);
    refusal_ = value == kInCall ? Refusal::inCall : Refusal::notInCall;
  } else if (isAnswerToStop(value)) {
    onStopped(std::nullopt);
  } else if (value == kEnded) {
    endByRecorder(RecordingEnd::recorder);
    onStopped(std::nullopt);
  } else if (value == kEndedByKey) {
    endByRecorder(RecordingEnd::key);
  } else if (value == kEndedByCall) {
    endByRecorder(RecordingEnd::call);
  }
}

void RecordingWatch::onLinkLost() {
  started_.put({std::nullopt, true});
  stopped_.put({std::nullopt, true});
  ended_.put(RecordingEnd::linkLost);
}

std::optional<RecordingWatch::Refusal> RecordingWatch::refusal() const {
  const std::lock_guard lock(mutex_);
  return refusal_;
}

std::optional<RecordingEnd> RecordingWatch::endOfRecorder() const {
  const std::lock_guard lock(mutex_);
  return endOfRecorder_;
}

void RecordingWatch::endByRecorder(RecordingEnd end) {
  {
    const std::lock_guard lock(mutex_);
    if (!endOfRecorder_) endOfRecorder_ = end;
  }
  ended_.put(end);
}

}  // namespace kwtsdk::tool
