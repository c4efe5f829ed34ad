#include "tools/live_capture.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/record_packet_result.h>

#include "tools/output.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::tool {
namespace {

constexpr auto kEndedResult = static_cast<std::int64_t>(RecordPacketResult::Ended);

/// Tells when the library lets go of the completion, which is when its command is no longer pending: as soon
/// as the completion is called would be too early for the stop.
struct StartCompletion {
  explicit StartCompletion(std::shared_ptr<CaptureWatch> told) : watch(std::move(told)) {}
  ~StartCompletion() { watch->onStarted(error); }
  StartCompletion(const StartCompletion&) = delete;
  StartCompletion& operator=(const StartCompletion&) = delete;

  const std::shared_ptr<CaptureWatch> watch;
  MaybeError error;
};

Failure notStarted(const Error& error, const std::optional<CaptureWatch::Refusal>& refusal) {
  using Refusal = CaptureWatch::Refusal;
  if (refusal == Refusal::inCall) {
    return {error, "The recorder is in a call, and then records nothing else",
            "End the call first, or record it with -t call."};
  }
  if (refusal == Refusal::notInCall) {
    return {error, "The recorder is not in a call",
            "Begin the call first, or record something else with -t."};
  }
  return explained(error);
}

CaptureOutcome outcomeOf(CaptureEnd end, const std::string& failure) {
  return {failure.empty() ? end : CaptureEnd::unwritable, std::nullopt, failure};
}

}  // namespace

CaptureWatch::CaptureWatch(Scheduler& scheduler)
    : started_(scheduler, "kwt.record.start"),
      stopped_(scheduler, "kwt.record.stop"),
      ended_(scheduler, "kwt.record.end") {}

void CaptureWatch::onNotification(std::string_view value) {
  if (value == wire::kRefusedInCall) {
    refusal_.set(Refusal::inCall);
  } else if (value == wire::kRefusedNotInCall) {
    refusal_.set(Refusal::notInCall);
  } else if (value.starts_with(wire::kStopped)) {
    onStopped(std::nullopt);
  } else if (value == wire::kEnded) {
    endByRecorder(CaptureEnd::recorder);
    onStopped(std::nullopt);
  } else if (value == wire::kEndedByKey) {
    endByRecorder(CaptureEnd::key);
  } else if (value == wire::kEndedByCall) {
    endByRecorder(CaptureEnd::call);
  } else if (KWTCmdResponse::writeRecordData(std::string(value), nullptr) == kEndedResult) {
    endByRecorder(CaptureEnd::recorder);  // for a reason without words of its own here
  }
}

void CaptureWatch::onLinkLost() {
  started_.put({std::nullopt, true});
  stopped_.put({std::nullopt, true});
  ended_.put(CaptureEnd::linkLost);
}

std::optional<CaptureEnd> CaptureWatch::endOfRecorder() const {
  const internal::MutexLock lock(mutex_);
  return endOfRecorder_;
}

void CaptureWatch::endByRecorder(CaptureEnd end) {
  {
    const internal::MutexLock lock(mutex_);
    if (!endOfRecorder_) endOfRecorder_ = end;
  }
  ended_.put(end);
}

LiveCapture::LiveCapture(Session& session, std::string path)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<CaptureWatch>(session.scheduler())),
      meter_(path_),
      line_(session.scheduler()) {
  session_.connection().setOnNotification(
      [watch = watch_](const Bytes& value) { watch->onNotification(hexText(value)); });
  session_.connection().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

LiveCapture::~LiveCapture() {
  session_.disconnectOnInterrupt();
  session_.connection().setOnDisconnect(nullptr);
  session_.connection().setOnNotification(nullptr);
}

CaptureOutcome LiveCapture::run(std::int64_t type, const std::optional<Duration>& length) {
  start(type);
  const CaptureEnd end = follow(length);
  line_.clear();
  pause(session_);
  // A stop that follows the recorder's own end would start a recording.
  if (const auto endOfRecorder = watch_->endOfRecorder()) return finish(*endOfRecorder);
  if (end != CaptureEnd::linkLost) return stop(end);
  endFile();
  return finish(end);
}

// Ctrl-C has to wait for the answer: a stop that reached a recorder which does not record would start it.
void LiveCapture::start(std::int64_t type) {
  constexpr Duration longest = std::chrono::seconds(10);
  {
    const auto completion = std::make_shared<StartCompletion>(watch_);
    session_.recorder().startRecordWithType(
        type, path_, [completion](const MaybeError& error) { completion->error = error; });
  }
  const auto answer = watch_->waitForStart(longest);
  if (!answer || answer->linkLost || !isConnected(session_)) throw noAnswer(session_, longest);
  if (answer->error) throw notStarted(*answer->error, watch_->refusal());
  file_ = session_.recorder().recordFileHandle();
}

CaptureEnd LiveCapture::follow(const std::optional<Duration>& length) {
  constexpr Duration tick = std::chrono::milliseconds(100);
  const Scheduler& scheduler = session_.scheduler();
  const Duration begin = scheduler.now();
  for (;;) {
    const Duration left = length ? *length - (scheduler.now() - begin) : tick;
    if (left <= Duration::zero()) return CaptureEnd::timeOver;
    if (const auto end = watch_->waitForEnd(std::min(left, tick))) return *end;
    if (!writeFailure().empty()) return CaptureEnd::unwritable;
    line_.show(measure());
  }
}

CaptureOutcome LiveCapture::finish(CaptureEnd end) {
  waitForFile();
  return outcomeOf(end, writeFailure());
}

CaptureOutcome LiveCapture::stop(CaptureEnd end) {
  constexpr Duration longest = std::chrono::seconds(5);
  // Looked up before the library closes the file: a packet that comes at that moment fails to be written.
  const std::string failure = writeFailure();
  session_.recorder().stopRecord([watch = watch_](const MaybeError& error) { watch->onStopped(error); });
  const auto answer = watch_->waitForStop(longest);
  if (!failure.empty()) return outcomeOf(end, failure);
  if (answer && !answer->error && !answer->linkLost) return outcomeOf(end, "");
  if (!isConnected(session_)) return outcomeOf(CaptureEnd::linkLost, "");
  return {CaptureEnd::notStopped, answer ? answer->error : std::nullopt, ""};
}

/// In the recorder's words, as the last packet, so that the library writes first what has arrived.
void LiveCapture::endFile() {
  if (const auto receivePacket = session_.recorder().writeDataBlock()) {
    receivePacket(std::nullopt, std::string(wire::kEnded));
  }
}

/// The library closes the file behind the last packet, and tells nobody.
void LiveCapture::waitForFile() {
  constexpr Duration step = std::chrono::milliseconds(5), longestWrite = std::chrono::seconds(10);
  for (Duration waited{0}; file_ && file_->isOpen() && waited < longestWrite; waited += step) {
    session_.scheduler().sleep(step);
  }
}

std::string LiveCapture::writeFailure() const {
  return file_ ? file_->failure() : "the library could not open it";
}

}  // namespace kwtsdk::tool
