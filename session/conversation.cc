#include "session/conversation.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <string>

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::session::detail {
namespace {

/// Also of limits such as Duration::max().
Duration later(Duration time, Duration by) {
  return by < Duration::max() - time ? time + by : Duration::max();
}

/// A clock cannot show every time that a host may name.
Duration waitingTime(Duration from, Duration until) {
  constexpr Duration longest = std::chrono::minutes(30);
  return std::clamp(until - from, Duration::zero(), longest);
}

/// What a host's predicate throws must not leave an exchange behind, of which nothing is left.
struct Forgetting {
  Conversation& recorder;
  Exchange& exchange;
  ~Forgetting() { recorder.forget(exchange); }
};

}  // namespace

const char* interruptionText(Errc reason) {
  switch (reason) {
    case Errc::closed:
      return "the session was closed";
    case Errc::timedOut:
      return "its time was over";
    default:
      return "it was cancelled";
  }
}

Conversation::Conversation(std::shared_ptr<Connection> connection, std::shared_ptr<Inbox> inbox,
                           std::shared_ptr<Scheduler> scheduler, std::function<void(Event)> onEvent)
    : connection_(std::move(connection)),
      inbox_(std::move(inbox)),
      scheduler_(std::move(scheduler)),
      onEvent_(std::move(onEvent)) {}

void Conversation::begin(const std::shared_ptr<OperationState>& operation, const Limits& limits) {
  operation_ = operation;
  silence_ = limits.silence();
  retries_ = limits.reconnects();
  failedOpenings_ = 0;
  hadLink_ = hasWritten_ = false;
}

void Conversation::leaveOperation() {
  exchanges_.clear();  // an exception leaves them behind
  listener_ = nullptr;
  operation_ = nullptr;
}

MaybeFailure Conversation::ended() {
  const Duration time = now();
  if (time < operation_->shield()) return std::nullopt;
  // The alarm may be late, or have had no thread.
  const auto deadline = operation_->deadline();
  if (deadline && time >= *deadline) operation_->interrupt(Errc::timedOut);
  const auto reason = operation_->interruption();
  return reason ? MaybeFailure(interruptionFailure(*reason)) : std::nullopt;
}

void Conversation::shield(Duration time) {
  constexpr Duration overtime = std::chrono::seconds(5);
  const auto deadline = operation_->deadline();
  operation_->shieldUntil(std::min(now() + time, deadline ? *deadline + overtime : Duration::max()));
}

// ---- The link ----

MaybeFailure Conversation::ready() {
  look();
  if (isDistrusted_) endLink();
  if (auto failure = ended()) return failure;
  if (!connection_->isOpen()) {
    const auto known = operation_->progress();
    operation_->report(ProgressReport::Stage::connecting, known.done, known.total);
    written_.clear();
    acknowledged_.clear();
    last_.clear();
    auto failure = connection_->open([this] {
      operation_->insist();
      return !ended();
    });
    failedOpenings_ = failure ? failedOpenings_ + 1 : 0;
    if (!failure) {  // the next operation may have it, if this one has to end
      streaming_ = connection_->find(wire::CHARACTERISTIC_NOTIFY).get();
      ++linkNumber_;
    }
    if (auto reason = ended()) return reason;
    if (failure) return failure;
  }
  hadLink_ = true;
  return std::nullopt;
}

bool Conversation::mayRetry(const Failure& failure) {
  constexpr Duration shortest = std::chrono::milliseconds(250);
  constexpr unsigned mostDoublings = 4;
  const bool isOfLink = failure.code() == Errc::linkLost || failure.code() == Errc::stalled ||
                        (failure.code() == Errc::linkFailed && hadLink_);
  isDistrusted_ = isDistrusted_ || isOfLink;
  if (!isOfLink || failure.effect() == Effect::unknown || !useRetry()) return false;
  // A recorder out of range is not there at once; one that dropped the link may be.
  if (failedOpenings_ > 0) pause(shortest * (1U << std::min(failedOpenings_ - 1, mostDoublings)));
  return true;  // whether the operation has to end is for the next try to say
}

bool Conversation::useRetry() {
  if (retries_ == 0) return false;
  --retries_;
  return true;
}

void Conversation::endLink() {
  connection_->close();
  isDistrusted_ = false;
}

// ---- Exchanges ----

Result<Bytes> Conversation::exchangeLeniently(const Request& request, Duration longest) {
  const bool wasDistrusted = isDistrusted_;
  auto answer = exchange(request, longest);
  isDistrusted_ = wasDistrusted;
  return answer;
}

Result<Bytes> Conversation::exchange(const Request& request, std::optional<Duration> longest) {
  Exchange exchange(request);
  wasSent_ = false;
  if (const auto failure = send(exchange)) return *failure;
  const Forgetting afterwards{*this, exchange};
  const Duration due = longest ? later(now(), *longest) : answerDue(silence_);
  const auto failure = waitUntil([&exchange] { return exchange.isOver(); }, 1, due);
  if (exchange.answer()) return *exchange.answer();
  if (exchange.error()) {
    return Failure(Errc::linkFailed,
                   "the Bluetooth stack refused it (" + exchange.error()->localizedDescription() + ")",
                   Effect::none, exchange.error());
  }
  isDistrusted_ = true;
  return failure ? *failure : Failure(Errc::stalled, "the recorder did not answer");
}

/// Several silences: it may be a recorder that says something all the time, but never answers.
Duration Conversation::answerDue(Duration silence) const {
  constexpr int most = 3;
  return later(now(), std::abs(silence.count()) < Duration::max().count() / most ? silence * most : silence);
}

MaybeFailure Conversation::send(Exchange& exchange) {
  const Request& request = exchange.request();
  look();
  if (!connection_->isOpen()) return Failure(Errc::linkLost, "the link was lost");
  const auto to = connection_->find(request.write), answersOn = connection_->find(request.answersOn);
  if (!to || (request.isAnswer && !answersOn)) {
    return Failure(Errc::badArgument,
                   "the recorder has no characteristic " + (to ? request.answersOn : request.write));
  }
  inbox_->restartSilence();
  hasWritten_ = true;
  if (auto failure = connection_->write(request.frame, to)) return failure;
  const auto last = last_.find(answersOn.get());
  exchange.sent(to.get(), ++written_[to.get()], answersOn.get(),
                last == last_.end() ? std::nullopt : std::optional(last->second));
  exchanges_.push_back(&exchange);
  wasSent_ = true;
  return std::nullopt;
}

MaybeFailure Conversation::listenTo(const std::string& uuid) {
  const auto found = connection_->find(uuid);
  if (!found) return Failure(Errc::badArgument, "the recorder has no characteristic " + uuid);
  return connection_->subscribe(found);
}

void Conversation::forget(Exchange& exchange) { std::erase(exchanges_, &exchange); }

// ---- Waits ----

MaybeFailure Conversation::waitUntil(const std::function<bool()>& isSo, std::size_t enough,
                                     std::optional<Duration> wakeUp) {
  for (;;) {
    if (isSo()) return std::nullopt;
    if (auto failure = ended()) return failure;
    if (!connection_->isOpen()) return Failure(Errc::linkLost, "the link was lost");
    const Duration time = now();
    if (wakeUp && time >= *wakeUp) return std::nullopt;
    if (time >= silentAt()) {
      isDistrusted_ = true;
      return Failure(Errc::stalled, "the recorder gave no sign any more");
    }
    for (const Sign& sign : inbox_->wait(waitingTime(time, nextMoment(wakeUp)), worthALook(enough))) {
      handOn(sign);
    }
  }
}

/// An acknowledgement is followed by its answer.
std::size_t Conversation::worthALook(std::size_t enough) const {
  constexpr std::size_t both = 2;
  const bool isBoth = !exchanges_.empty() && std::ranges::all_of(exchanges_, &Exchange::needsBoth);
  return isBoth ? std::max(enough, both) : enough;
}

Duration Conversation::silentAt() const { return later(inbox_->lastSign(), silence_); }

Duration Conversation::nextMoment(std::optional<Duration> wakeUp) const {
  return std::min({silentAt(), endDue(), wakeUp.value_or(Duration::max())});
}

/// When ended() may have another answer without a nudge.
Duration Conversation::endDue() const {
  if (operation_->isShielded()) return operation_->shield();
  return operation_->deadline().value_or(Duration::max());
}

void Conversation::look() {
  for (const Sign& sign : inbox_->take()) handOn(sign);
}

MaybeFailure Conversation::pause(Duration time) {
  const Duration until = later(now(), time);
  for (;;) {
    if (auto failure = ended()) return failure;
    const Duration at = now();
    if (at >= until) return std::nullopt;
    for (const Sign& sign : inbox_->wait(waitingTime(at, std::min(until, endDue())))) handOn(sign);
  }
}

// ---- What has come ----

void Conversation::handOn(const Sign& sign) {
  if (sign.kind == Sign::Kind::lost) {
    connection_->noteLoss();
    return;
  }
  if (sign.kind == Sign::Kind::acknowledged) {
    // One that is told twice must not stand for the next.
    if (acknowledged_[sign.from] < written_[sign.from]) ++acknowledged_[sign.from];
    offer(sign);
    return;
  }
  noteBattery(sign);
  if (offer(sign)) {
    last_[sign.from] = sign.value;
  } else if (listener_ == nullptr || sign.from != streaming_ || !listener_->take(sign)) {
    last_[sign.from] = sign.value;
    publish(event::Unexpected{sign.value});
  }
}

bool Conversation::offer(const Sign& sign) {
  if (exchanges_.empty()) return false;
  const auto acknowledged = acknowledged_.find(sign.from);
  const std::uint64_t count = acknowledged == acknowledged_.end() ? 0 : acknowledged->second;
  return std::ranges::any_of(exchanges_, [&](Exchange* exchange) { return exchange->offer(sign, count); });
}

void Conversation::noteBattery(const Sign& sign) {
  constexpr std::uint8_t firstOfReply = 0x99;
  if (sign.value.empty() || sign.value[0] != firstOfReply) return;
  const std::string text = internal::hexString(sign.value);
  if (wire::isPowerReply(text)) publish(event::BatterySeen{KWTCmdResponse::getPower(text)});
}

}  // namespace kwtsdk::session::detail
