#include "session/transfer.h"

#include <algorithm>
#include <chrono>
#include <string>

#include "codec/hex.h"
#include "session/store.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::session::detail {

Transfer::Transfer(Conversation& recorder, RecordingInfo recording, Intake& intake)
    : recorder_(recorder), recording_(recording), intake_(intake), link_(recorder.linkNumber()) {
  recorder_.setListener(this);
}

Transfer::~Transfer() { recorder_.setListener(nullptr); }

Result<Done> Transfer::run() {
  auto result = recorder_.persist([this] { return runOverOneLink(); });
  if (!result) recorder_.endLink();
  return result;
}

Result<Done> Transfer::runOverOneLink() {
  bool isNewLink = streamedOn_ != recorder_.linkNumber();
  std::optional<std::uint64_t> failedAt;
  if (auto failure = checkStillFirst()) return *failure;
  for (;;) {
    const auto verdict = ask(isNewLink);
    if (!verdict) return verdict.error();
    if (*verdict == Kind::whole) return Done{};
    if (*verdict == Kind::again && !recorder_.useRetry()) {
      const bool isShort = isEnd_ && intake_.position() < recording_.bytes;
      return Failure(isShort ? Errc::incomplete : Errc::damaged,
                     isShort ? "bytes of the recording stayed away" : "the recording arrived damaged");
    }
    // While it still sends, packets of this request and of the next could not be told apart.
    isNewLink = !isEnd_ || failedAt == intake_.askFrom();
    failedAt = intake_.askFrom();
    if (isNewLink) {
      recorder_.endLink();
      if (auto failure = recorder_.ready()) return *failure;
      if (auto failure = checkStillFirst()) return *failure;
    }
    if (auto failure = recorder_.pause()) return *failure;
  }
}

/// While the link was away the recorder may have got another first recording.
MaybeFailure Transfer::checkStillFirst() {
  if (link_ == recorder_.linkNumber()) return std::nullopt;
  if (auto failure = askStillFirst(recorder_, recording_)) return failure;
  link_ = recorder_.linkNumber();
  return std::nullopt;
}

Result<Transfer::Kind> Transfer::ask(bool isNewLink) {
  intake_.begin(isNewLink);
  report();
  if (!beganAt_) beganAt_ = intake_.askFrom();
  Exchange request(downloadRequest(recording_.id, intake_.askFrom()));
  bytes_.clear();
  isEnd_ = isOverfull_ = false;
  if (auto failure = recorder_.send(request)) return *failure;
  lastBytes_ = recorder_.now();
  request_ = &request;
  auto verdict = follow(request);
  request_ = nullptr;
  recorder_.forget(request);
  streamedOn_ = recorder_.linkNumber();
  return verdict;
}

Result<Transfer::Kind> Transfer::follow(Exchange& request) {
  for (;;) {
    if (auto failure = waitForBytes(request)) {
      const auto rest = useUp();  // what had come is not lost with the link
      return rest ? *failure : rest.error();
    }
    if (const auto& error = request.error()) {
      return Failure(Errc::linkFailed,
                     "the Bluetooth stack refused it (" + error->localizedDescription() + ")", Effect::none,
                     error);
    }
    const auto verdict = useUp();
    if (!verdict || *verdict != Kind::more) return verdict;
    report();
  }
}

Result<Transfer::Kind> Transfer::useUp() {
  Bytes bytes;
  bytes.swap(bytes_);
  if (!bytes.empty()) {
    lastBytes_ = recorder_.now();
    const auto verdict = intake_.take(bytes);
    bytes.clear();
    bytes_.swap(bytes);  // its memory
    if (verdict.failure) return *verdict.failure;
    if (verdict.kind != Kind::more) return verdict.kind;
  }
  if (!isEnd_ && left() > 0) return Kind::more;
  isEnd_ = true;
  const auto verdict = intake_.end(isOverfull_);
  if (verdict.failure) return *verdict.failure;
  return verdict.kind;
}

/// Some at a time: for each packet a change of threads would cost more than the packet.
MaybeFailure Transfer::waitForBytes(const Exchange& request) {
  constexpr std::size_t batch = 64;
  constexpr Duration longest = std::chrono::milliseconds(50);
  const std::uint64_t packets = (left() + wire::kDownloadDataSize - 1) / wire::kDownloadDataSize;
  const auto enough = static_cast<std::size_t>(std::clamp<std::uint64_t>(packets, 1, batch));
  const auto hasSome = [&] { return !bytes_.empty() || isEnd_ || left() == 0 || request.error(); };
  while (!hasSome()) {
    if (recorder_.now() - lastBytes_ >= recorder_.silence()) return noteSilence();
    if (auto failure = recorder_.waitUntil(hasSome, enough, recorder_.now() + longest)) return failure;
  }
  return std::nullopt;
}

/// It may say something all the time, and send nothing of the recording.
MaybeFailure Transfer::noteSilence() {
  recorder_.distrustLink();
  return Failure(Errc::stalled, "the recorder stopped sending");
}

bool Transfer::take(const Sign& sign) {
  if (sign.value.size() < 2 || sign.value[0] != 0x03 || sign.value[1] != 0x82) return false;
  // Before the acknowledgement they are still those of the request before.
  const bool isLate =
      request_ == nullptr || isEnd_ || (streamedOn_ == recorder_.linkNumber() && !request_->isAcknowledged());
  if (isLate) return true;
  const auto packet = wire::downloadPacket(internal::hexString(sign.value));
  using Packet = wire::DownloadPacket::Kind;
  if (packet.kind == Packet::ignored) return true;
  isEnd_ = packet.kind != Packet::data;
  const auto data = packet.data();
  isOverfull_ = isOverfull_ || packet.valid > left();
  const std::uint64_t valid = std::min({packet.valid, std::uint64_t{data.size()}, left()});
  bytes_.insert(bytes_.end(), data.begin(), data.begin() + static_cast<std::ptrdiff_t>(valid));
  return true;
}

void Transfer::report() {
  const auto stage =
      intake_.isSecondLook() ? ProgressReport::Stage::verifying : ProgressReport::Stage::transferring;
  recorder_.operation().report(stage, intake_.position(), recording_.bytes);
}

}  // namespace kwtsdk::session::detail
