#include "session/recording.h"

#include <algorithm>
#include <chrono>
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "codec/error_codes.h"
#include "session/recording_file.h"
#include "session/sound.h"
#include "session/visitors.h"

namespace kwtsdk::session::detail {
namespace {

using Stage = ProgressReport::Stage;

constexpr Duration kLongestStart = std::chrono::seconds(10), kLongestStop = std::chrono::seconds(5);

class Recording : public Listener {
 public:
  Recording(Conversation& recorder, Worker& worker, const RecordOptions& options, const StopWish& stop,
            std::shared_ptr<RecordingFile> file)
      : recorder_(recorder), worker_(worker), options_(options), stop_(stop), file_(std::move(file)) {
    recorder_.setListener(this);
  }
  ~Recording() override { recorder_.setListener(nullptr); }
  Recording(const Recording&) = delete;
  Recording& operator=(const Recording&) = delete;

  /// None: it has come to a good end.
  MaybeFailure run() {
    const auto started = recorder_.persist([this] { return start(); });
    if (!started) return started.error();
    auto failure = follow();
    if (!failure) failure = fileFailure_;  // of sound that came with the end, or behind the stop
    recorder_.endShield();
    // Without an end that is known it may record on, and only the link's end ends that.
    if (!end_ || recorder_.isLinkDistrusted()) recorder_.endLink();
    if (end_) recorder_.publish(event::RecordingEnded{*end_});
    return failure;
  }

  void describe(Recorded& recorded) const {
    recorded.end = end_.value_or(RecordingEnd::stopped);
    recorded.bytes = file_->size();
    recorded.packets = packets_;
    recorded.length = kSoundOfPacket * static_cast<Duration::rep>(packets_);
  }

  bool take(const Sign& sign) override;

 private:
  Result<Done> start();
  MaybeFailure sendStart();
  MaybeFailure failureOfStart(const Exchange& request, const MaybeFailure& ended);
  MaybeFailure follow();
  MaybeFailure stop(RecordingEnd end);
  MaybeFailure sendStop();
  MaybeFailure waitForRest();
  bool isOfThis(SoundSign kind) const;
  bool isAmbient() const { return options_.type() == RecordingType::ambient; }
  void append(const Bytes& packet);
  std::optional<Duration> lengthDue() const;

  Conversation& recorder_;
  Worker& worker_;
  const RecordOptions& options_;
  const StopWish stop_;
  const std::shared_ptr<RecordingFile> file_;

  const Exchange* start_ = nullptr;  // under way
  std::optional<SoundSign> first_;   // that came of the recorder
  std::optional<RecordingEnd> end_;  // as soon as it is known
  bool isStopping_ = false;
  bool isAnother_ = false;  // the recorder took the stop for a start: what sounds now is another recording
  MaybeFailure fileFailure_;
  std::uint64_t packets_ = 0;
  Duration began_{0}, lastSound_{0};
};

Result<Done> Recording::start() {
  auto failure = sendStart();
  if (failure && failure->code() == Errc::refused && isAmbient()) {
    // Its frame is that of a stop: a recorder that has just ended a recording took it for one which crossed
    // the end.
    if (auto ended = recorder_.ended()) return *ended;
    first_.reset();
    failure = sendStart();
  }
  if (failure) return *failure;
  began_ = lastSound_ = recorder_.now();
  recorder_.publish(event::RecordingStarted{options_.type()});
  return Done{};
}

/// Cancelling has to wait for the answer: a stop that reached a recorder which does not record would start
/// it.
MaybeFailure Recording::sendStart() {
  recorder_.operation().report(Stage::asking);
  Exchange request(startRequest(static_cast<std::int64_t>(options_.type())));
  if (auto failure = recorder_.send(request)) return failure;
  recorder_.shield(kLongestStart);
  start_ = &request;
  const auto ended =
      recorder_.waitUntil([&] { return first_ || request.error(); }, 1, recorder_.now() + kLongestStart);
  start_ = nullptr;
  recorder_.forget(request);
  recorder_.endShield();
  return failureOfStart(request, ended);
}

MaybeFailure Recording::failureOfStart(const Exchange& request, const MaybeFailure& ended) {
  if (!first_ || request.error()) recorder_.endLink();  // which ends a recording that began unseen
  if (const auto& error = request.error()) {
    return Failure(Errc::linkFailed, "the Bluetooth stack refused it (" + error->localizedDescription() + ")",
                   Effect::unknown, error);
  }
  if (!first_) {
    if (ended) return Failure(ended->code(), ended->text(), Effect::unknown, ended->cause());
    return Failure(Errc::stalled, "the recorder did not say that it records", Effect::unknown);
  }
  switch (*first_) {
    case SoundSign::refusedInCall:
      return Failure(Errc::inCall, "the recorder is in a call, and then records nothing else", Effect::none,
                     internal::recordStartError());
    case SoundSign::refusedNotInCall:
      return Failure(Errc::notInCall, "the recorder is not in a call", Effect::none,
                     internal::recordStartError());
    case SoundSign::stopped:
      return Failure(Errc::refused, "the recorder was recording already, and took the start for a stop",
                     Effect::done, internal::recordStartError());
    default:
      return std::nullopt;
  }
}

MaybeFailure Recording::follow() {
  Visitors visitors(recorder_, worker_);
  const auto hasToAct = [&] { return end_ || fileFailure_ || *stop_ || visitors.isWaiting(); };
  for (;;) {
    recorder_.operation().report(Stage::recording, file_->size());
    if (end_) return std::nullopt;
    if (fileFailure_) {
      stop(RecordingEnd::stopped);
      return fileFailure_;
    }
    if (*stop_) return stop(RecordingEnd::stopped);
    const auto due = lengthDue();
    if (due && recorder_.now() >= *due) return stop(RecordingEnd::timeOver);
    if (auto failure = visitors.attend()) return failure;
    const Duration wakeUp = std::min(due.value_or(Duration::max()), visitors.due());
    auto failure = recorder_.waitUntil(hasToAct, 1, wakeUp);
    if (!failure) continue;
    if (!recorder_.isLinkLost() && recorder_.ended()) stop(RecordingEnd::stopped);
    return failure;
  }
}

std::optional<Duration> Recording::lengthDue() const {
  constexpr Duration longest = std::chrono::hours(24 * 365);
  if (!options_.length() || *options_.length() >= longest) return std::nullopt;
  return began_ + *options_.length();
}

MaybeFailure Recording::stop(RecordingEnd end) {
  recorder_.operation().report(Stage::stopping, file_->size());
  recorder_.shield(kLongestStop);
  recorder_.look();
  if (end_) return std::nullopt;  // by itself, and the stop would start another
  isStopping_ = true;
  auto failure = sendStop();
  if (!failure && isAnother_) failure = sendStop();
  if (!failure && !end_) end_ = end;
  return failure;
}

MaybeFailure Recording::sendStop() {
  Exchange request(stopRequest());
  if (auto failure = recorder_.send(request)) return failure;
  const bool wasAnother = isAnother_;
  auto failure = recorder_.waitUntil([&] { return request.isOver() || isAnother_ != wasAnother; }, 1,
                                     recorder_.now() + kLongestStop);
  recorder_.forget(request);
  if (isAnother_ != wasAnother) return std::nullopt;
  if (!failure && request.answer()) return waitForRest();
  recorder_.endLink();            // with which a recording ends that goes on
  if (end_) return std::nullopt;  // it crossed the stop
  if (failure) return Failure(failure->code(), failure->text(), Effect::unknown, failure->cause());
  return Failure(Errc::stalled, "the recorder did not confirm the stop", Effect::unknown, request.error());
}

/// Sound may be under way behind the answer.
MaybeFailure Recording::waitForRest() {
  constexpr Duration quiet = std::chrono::milliseconds(300);
  lastSound_ = recorder_.now();
  const auto isOver = [&] { return end_ || isAnother_; };
  while (!isOver() && recorder_.now() - lastSound_ < quiet && recorder_.operation().isShielded()) {
    if (recorder_.waitUntil(isOver, 1, lastSound_ + quiet)) break;
  }
  if (end_ == RecordingEnd::recorder) end_.reset();  // the stop's own end
  return std::nullopt;
}

/// Until the start is acknowledged, sound and ends are those of the recording before: taken for this one's
/// they would have it stopped before it began, or left running.
bool Recording::isOfThis(SoundSign kind) const {
  if (first_ || (start_ != nullptr && start_->isAcknowledged())) return true;
  const bool isAnswer = kind == SoundSign::started || kind == SoundSign::refusedInCall ||
                        kind == SoundSign::refusedNotInCall || (kind == SoundSign::stopped && isAmbient());
  return start_ != nullptr && isAnswer;
}

bool Recording::take(const Sign& sign) {
  const auto kind = soundSignOf(sign.value);
  if (!kind || !isOfThis(*kind)) return false;
  const bool isFirst = !first_;
  if (isFirst) first_ = kind;
  switch (*kind) {
    case SoundSign::sound:
      if (!isAnother_) append(sign.value);
      break;
    case SoundSign::started:
      isAnother_ = isAnother_ || (isStopping_ && !isFirst);
      break;
    case SoundSign::endedByKey:
      end_ = RecordingEnd::key;
      break;
    case SoundSign::endedByCall:
      end_ = RecordingEnd::call;
      break;
    case SoundSign::ended:
      if (!end_) end_ = RecordingEnd::recorder;
      break;
    default:
      break;
  }
  return true;
}

void Recording::append(const Bytes& packet) {
  lastSound_ = recorder_.now();
  worker_.audio().publish(AudioPacket{packets_++, opusOf(packet)});
  if (!fileFailure_) fileFailure_ = file_->append(packet);
}

}  // namespace

Result<Recorded> record(Conversation& recorder, Worker& worker, const std::filesystem::path& file,
                        const RecordOptions& options, const StopWish& stop) {
  const auto created = RecordingFile::create(file);
  if (!created) return created.error();
  Recorded recorded;  // all that takes memory of it, before there is sound
  recorded.file = file;
  Recording recording(recorder, worker, options, stop, *created);
  const std::uint64_t missedBefore = recorder.missedSigns();
  MaybeFailure failure;
  try {
    failure = recording.run();
    if (!failure && recorder.missedSigns() != missedBefore) {
      failure = Failure(Errc::noResources, "there was no memory for all of the sound", Effect::unknown);
    }
  } catch (const std::bad_alloc&) {  // what is in the file stays
    recorder.endLink();              // with which a recording ends
    failure = Failure(Errc::noResources, "no memory left", Effect::unknown);
  }
  if (auto unwritten = (*created)->close(); unwritten && !failure) failure = unwritten;
  recording.describe(recorded);
  if (!failure) return recorded;
  if (recorded.bytes == 0) return std::move(*failure);
  return {std::move(*failure), std::move(recorded)};
}

}  // namespace kwtsdk::session::detail
