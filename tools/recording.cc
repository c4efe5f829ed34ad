#include "tools/recording.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "tools/recorder_queries.h"

namespace kwtsdk::tool {
namespace {

/// Tells when the library lets go of the completion, which is when its command is no longer pending: as soon
/// as the completion is called would be too early for the stop.
struct StartCompletion {
  explicit StartCompletion(std::shared_ptr<RecordingWatch> told) : watch(std::move(told)) {}
  ~StartCompletion() { watch->onStarted(error); }
  StartCompletion(const StartCompletion&) = delete;
  StartCompletion& operator=(const StartCompletion&) = delete;

  const std::shared_ptr<RecordingWatch> watch;
  MaybeError error;
};

Failure notStarted(const Error& error, const std::optional<RecordingWatch::Refusal>& refusal) {
  using Refusal = RecordingWatch::Refusal;
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

RecordingOutcome outcomeOf(RecordingEnd end, const std::string& failure) {
  return {failure.empty() ? end : RecordingEnd::unwritable, std::nullopt, failure};
}

}  // namespace

Recording::Recording(Session& session, std::string path)
    : session_(session),
      path_(std::move(path)),
      watch_(std::make_shared<RecordingWatch>(session.scheduler())),
      meter_(path_),
      line_(session.scheduler()) {
  session_.link().setOnNotification([watch = watch_](const Bytes& value) { watch->onNotification(value); });
  session_.link().setOnDisconnect([watch = watch_] { watch->onLinkLost(); });
  session_.interrupt().setAction([watch = watch_] { watch->onInterrupt(); });
}

Recording::~Recording() {
  session_.endLinkOnInterrupt();
  session_.link().setOnDisconnect(nullptr);
  session_.link().setOnNotification(nullptr);
}

RecordingOutcome Recording::run(std::int64_t type, const std::optional<Duration>& length) {
  start(type);
  const RecordingEnd end = follow(length);
  line_.clear();
  pause(session_);
  // A stop that follows the recorder's own end would start a recording.
  if (const auto endOfRecorder = watch_->endOfRecorder()) return finish(*endOfRecorder);
  if (end != RecordingEnd::linkLost) return stop(end);
  endFile();
  return finish(end);
}

// Ctrl-C has to wait for the answer: a stop that reached a recorder which does not record would start it.
void Recording::start(std::int64_t type) {
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

RecordingEnd Recording::follow(const std::optional<Duration>& length) {
  constexpr Duration tick = std::chrono::milliseconds(100);
  const Scheduler& scheduler = session_.scheduler();
  const Duration begin = scheduler.now();
  for (;;) {
    const Duration left = length ? *length - (scheduler.now() - begin) : tick;
    if (left <= Duration::zero()) return RecordingEnd::timeOver;
    if (const auto end = watch_->waitForEnd(std::min(left, tick))) return *end;
    if (!writeFailure().empty()) return RecordingEnd::unwritable;
    line_.show(measure());
  }
}

RecordingOutcome Recording::finish(RecordingEnd end) {
  waitForFile();
  return outcomeOf(end, writeFailure());
}

RecordingOutcome Recording::stop(RecordingEnd end) {
  constexpr Duration longest = std::chrono::seconds(5);
  // Looked up before the library closes the file: a packet that comes at that moment fails to be written.
  const std::string failure = writeFailure();
  session_.recorder().stopRecord([watch = watch_](const MaybeError& error) { watch->onStopped(error); });
  const auto answer = watch_->waitForStop(longest);
  if (!failure.empty()) return outcomeOf(end, failure);
  if (answer && !answer->error && !answer->linkLost) return outcomeOf(end, "");
  if (!isConnected(session_)) return outcomeOf(RecordingEnd::linkLost, "");
  return {RecordingEnd::notStopped, answer ? answer->error : std::nullopt, ""};
}

/// In the recorder's words, as the last packet, so that the library writes first what has arrived.
void Recording::endFile() {
  if (const auto receivePacket = session_.recorder().writeDataBlock()) {
    receivePacket(std::nullopt, "0801000100");
  }
}

/// The library closes the file behind the last packet, and tells nobody.
void Recording::waitForFile() {
  constexpr Duration step = std::chrono::milliseconds(5), longestWrite = std::chrono::seconds(10);
  for (Duration waited{0}; file_ && file_->isOpen() && waited < longestWrite; waited += step) {
    session_.scheduler().sleep(step);
  }
}

std::string Recording::writeFailure() const {
  return file_ ? file_->failure() : "the library could not open it";
}

}  // namespace kwtsdk::tool
