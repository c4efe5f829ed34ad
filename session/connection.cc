#include "session/connection.h"

#include <algorithm>
#include <array>
#include <string>

#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::session::detail {
namespace {

constexpr std::array<const char*, 3> kNotifying{wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
                                                wire::CHARACTERISTIC_NOTIFY,
                                                wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY};
constexpr std::array<const char*, 3> kWritten{wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
                                              wire::CHARACTERISTIC_WRITE,
                                              wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY};

Link::Events eventsInto(const std::shared_ptr<Inbox>& inbox, const internal::Logger& log) {
  using Kind = Sign::Kind;
  const auto put = [inbox, log](const auto& sign) {
    if (!internal::guardedCall(log, "The inbox", [&] { inbox->put(sign()); })) inbox->miss();
  };
  Link::Events events;
  events.didWrite = [put](const auto&, const auto& to, const MaybeError& error) {
    put([&] { return Sign{Kind::acknowledged, to.get(), {}, error}; });
  };
  events.didUpdate = [put](const auto&, const auto& from, const MaybeError& error) {
    if (!from || error) return;
    put([&] { return Sign{Kind::notified, from.get(), from->value().value_or(Bytes{}), {}}; });
  };
  events.didDisconnect = [put] { put([] { return Sign{Kind::lost}; }); };
  return events;
}

}  // namespace

Connection::Connection(std::shared_ptr<Link> link, std::shared_ptr<Inbox> inbox, internal::Logger log,
                       OnChange onChange)
    : link_(std::move(link)), inbox_(std::move(inbox)), log_(std::move(log)), onChange_(std::move(onChange)) {
  follow();
}

/// Where there was no memory for it at first there may be later.
MaybeFailure Connection::follow() {
  if (isFollowed_) return std::nullopt;
  auto failure = guarded("Link::setEvents", [&] { link_->setEvents(eventsInto(inbox_, log_)); });
  isFollowed_ = !failure;
  return failure;
}

MaybeFailure Connection::open(const std::function<bool()>& wanted) {
  if (auto failure = follow()) return failure;
  change(LinkState::opening);
  const auto giveUp = [this](const MaybeError& cause) {
    isOpening_ = false;
    ++endsToCome_;
    callClose();
    change(LinkState::closed, cause);
  };
  MaybeFailure failure;
  try {
    failure = make(wanted);
  } catch (...) {  // no memory; the link may be open
    giveUp(std::nullopt);
    throw;
  }
  if (failure) {
    giveUp(failure->cause());
    return failure;
  }
  isOpen_ = true;
  inbox_->restartSilence();
  change(LinkState::open);
  return std::nullopt;
}

MaybeFailure Connection::make(const std::function<bool()>& wanted) {
  isInterrupted_ = false;
  isOpening_ = true;
  const bool isWanted = wanted();
  auto failure = isWanted ? callOpen() : std::nullopt;
  isOpening_ = false;
  // One that is interrupted may have been made just before, and ends: the next operation must not get it.
  if (!failure && (!isWanted || isInterrupted_))
    failure = Failure(Errc::linkFailed, "the link is not wanted any more");
  if (!failure) failure = findChannels();
  if (!failure) {
    MaybeFailure tooSmall;
    failure = guarded("Peripheral::maximumWriteValueLengthForType", [&] { tooSmall = checkPacketSize(); });
    if (!failure) failure = tooSmall;
  }
  return failure;
}

MaybeFailure Connection::callOpen() {
  MaybeError error;
  if (auto failure = guarded("Link::open", [&] { error = link_->open(); })) return failure;
  if (!error) return std::nullopt;
  return Failure(Errc::linkFailed, "the link could not be made (" + error->localizedDescription() + ")",
                 Effect::none, error);
}

MaybeFailure Connection::findChannels() {
  std::vector<std::shared_ptr<Characteristic>> characteristics;
  auto failure = guarded("The link", [&] {
    peripheral_ = link_->peripheral();
    characteristics = link_->characteristics();
    found_.clear();
    byText_.clear();
    subscribed_.clear();
    for (const auto& known : characteristics)
      if (known) found_.emplace_back(known->UUID(), known);
  });
  if (failure) return failure;
  for (const auto& channels : {kWritten, kNotifying}) {
    for (const char* const uuid : channels) {
      if (!peripheral_ || !find(uuid)) {
        return Failure(Errc::notARecorder,
                       std::string("the device is no recorder: it lacks the characteristic ") + uuid);
      }
    }
  }
  for (const char* const uuid : kNotifying) {
    if ((failure = subscribe(find(uuid)))) return failure;
  }
  return std::nullopt;
}

/// A download's packets have that size, and what does not fit one arrives cut.
MaybeFailure Connection::checkPacketSize() const {
  constexpr std::size_t attHead = 3;
  const std::size_t plain = peripheral_->maximumWriteValueLengthForType(WriteType::withoutResponse);
  // With response some stacks name what several packets carry; some name nothing for the other kind.
  const std::size_t fitting =
      plain > 0 ? plain : peripheral_->maximumWriteValueLengthForType(WriteType::withResponse);
  if (fitting >= wire::kDownloadPacketSize) return std::nullopt;
  return Failure(Errc::packetsTooSmall, "the link carries " + std::to_string(fitting) +
                                            " bytes at a time (ATT MTU " + std::to_string(fitting + attHead) +
                                            "), and the recorder's packets have " +
                                            std::to_string(wire::kDownloadPacketSize));
}

void Connection::close() {
  if (!isOpen_) return;
  ++endsToCome_;
  isOpen_ = false;
  callClose();
  change(LinkState::closed);
}

bool Connection::noteLoss() {
  const bool isExpected = endsToCome_ > 0;
  if (isExpected) --endsToCome_;
  if (!isOpen_) return false;
  auto state = PeripheralState::disconnected;
  if (isExpected) guarded("Peripheral::state", [&] { state = peripheral_->state(); });
  if (state == PeripheralState::connected) return false;
  lose();
  return true;
}

void Connection::lose() {
  isOpen_ = false;
  change(LinkState::lost);
}

// Reading UUIDs is more than half of what it takes to send a request: so each text once.
Connection::Found Connection::find(std::string_view uuid) {
  const auto asked = byText_.find(uuid);
  if (asked != byText_.end()) return asked->second;
  const auto wanted = Uuid::fromString(uuid);
  const auto known =
      std::ranges::find_if(found_, [&wanted](const auto& candidate) { return candidate.first == wanted; });
  if (known == found_.end()) return nullptr;
  return byText_.emplace(uuid, known->second).first->second;
}

MaybeFailure Connection::subscribe(const Found& to) {
  if (!subscribed_.insert(to).second) return std::nullopt;
  return guarded("Peripheral::setNotifyValue", [&] { peripheral_->setNotifyValue(true, to); });
}

MaybeFailure Connection::write(const Bytes& frame, const Found& to) {
  auto state = PeripheralState::disconnected;
  if (auto failure = guarded("Peripheral::state", [&] { state = peripheral_->state(); })) return failure;
  if (state != PeripheralState::connected) {
    ++endsToCome_;
    lose();
    return Failure(Errc::linkLost, "the link was lost");
  }
  return guarded("Peripheral::writeValue",
                 [&] { peripheral_->writeValue(frame, to, WriteType::withResponse); });
}

std::size_t Connection::longestWrite() const {
  return peripheral_->maximumWriteValueLengthForType(WriteType::withResponse);
}

void Connection::interruptOpening() {
  isInterrupted_ = true;
  if (isOpening_) callClose();
}

/// Part of clean-ups: what it throws is not even made a Failure of, which takes memory.
void Connection::callClose() {
  internal::guardedCall(log_, "Link::close", [this] { link_->close(); });
}

void Connection::change(LinkState state, const MaybeError& error) {
  if (state_.exchange(state) != state || error) onChange_(state, error);
}

MaybeFailure Connection::guarded(const char* what, const std::function<void()>& call) {
  if (internal::guardedCall(log_, what, call)) return std::nullopt;
  std::string text;  // none where there is no memory for it
  internal::guardedCall(log_, what, [&] { text = std::string(what) + " threw an exception"; });
  return Failure(Errc::linkFailed, std::move(text));
}

}  // namespace kwtsdk::session::detail
