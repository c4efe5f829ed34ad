#include "tools/replay_link.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <utility>

#include "platform/threads/mutex.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::tool {
namespace {

using Kind = TraceEvent::Kind;

class ReplayedCharacteristic final : public Characteristic {
 public:
  explicit ReplayedCharacteristic(Uuid uuid) : uuid_(uuid) {}
  Uuid UUID() const override { return uuid_; }
  std::uint32_t properties() const override {
    return characteristic_property::write | characteristic_property::notify;
  }
  std::optional<Bytes> value() const override {
    const internal::MutexLock lock(mutex_);
    return value_;
  }
  void set(Bytes value) {
    const internal::MutexLock lock(mutex_);
    value_ = std::move(value);
  }

 private:
  const Uuid uuid_;
  mutable internal::Mutex mutex_;
  std::optional<Bytes> value_ KWT_GUARDED_BY(mutex_);
};

class Replay final : public ReplayLink, public Peripheral, public std::enable_shared_from_this<Replay> {
 public:
  Replay(std::shared_ptr<Scheduler> scheduler, RecordedTrace trace);

  // The link.
  void setEvents(Events events) override { events_ = std::move(events); }
  MaybeError open() override;
  void close() override;
  std::shared_ptr<Peripheral> peripheral() const override {
    return std::const_pointer_cast<Replay>(shared_from_this());
  }
  std::vector<std::shared_ptr<Characteristic>> characteristics() const override {
    return {characteristics_.begin(), characteristics_.end()};
  }

  // The peripheral.
  PeripheralState state() const override {
    return isOpen_ ? PeripheralState::connected : PeripheralState::disconnected;
  }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType type) override;
  void setNotifyValue(bool, const std::shared_ptr<Characteristic>&) override {}
  std::size_t maximumWriteValueLengthForType(WriteType) const override { return trace_.longestWrite; }

  // The replay.
  std::vector<Bytes> rest() const override;
  void skip() override { position_ = nextOf(Kind::written, position_) + 1; }
  void setOnDue(std::function<void(const Bytes&)> onDue) override { onDue_ = std::move(onDue); }

 private:
  std::size_t nextOf(Kind kind, std::size_t from) const;
  std::shared_ptr<ReplayedCharacteristic> find(const Uuid& uuid) const;
  std::size_t placeOf(const Bytes& frame, const Uuid& characteristic) const;
  void play(std::size_t written, unsigned connection);
  void deliver(const TraceEvent& event);
  bool isStill(unsigned connection) const { return isOpen_ && connection == connection_; }

  const std::shared_ptr<Scheduler> scheduler_;
  const RecordedTrace trace_;
  std::vector<std::shared_ptr<ReplayedCharacteristic>> characteristics_;
  Events events_;
  std::function<void(const Bytes&)> onDue_;
  std::atomic<std::size_t> position_{0};  // behind what was written last
  std::atomic<bool> isOpen_{false};
  std::atomic<unsigned> connection_{0};  // the which
  const std::shared_ptr<SerialQueue> queue_;
};

Replay::Replay(std::shared_ptr<Scheduler> scheduler, RecordedTrace trace)
    : scheduler_(std::move(scheduler)),
      trace_(std::move(trace)),
      queue_(scheduler_->serialQueue("kwt.replay")) {
  for (const char* const uuid :
       {wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE, wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
        wire::CHARACTERISTIC_WRITE, wire::CHARACTERISTIC_NOTIFY,
        wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY}) {
    characteristics_.push_back(std::make_shared<ReplayedCharacteristic>(Uuid::fromString(uuid).value()));
  }
}

MaybeError Replay::open() {
  ++connection_;
  isOpen_ = true;
  return std::nullopt;
}

void Replay::close() {
  if (!isOpen_.exchange(false)) return;
  queue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->events_.didDisconnect();
  });
}

std::size_t Replay::nextOf(Kind kind, std::size_t from) const {
  const auto& events = trace_.events;
  const auto begin = events.begin() + static_cast<std::ptrdiff_t>(std::min(from, events.size()));
  return static_cast<std::size_t>(std::ranges::find(begin, events.end(), kind, &TraceEvent::kind) -
                                  events.begin());
}

std::vector<Bytes> Replay::rest() const {
  std::vector<Bytes> frames;
  for (std::size_t at = position_; at < trace_.events.size(); ++at) {
    if (trace_.events[at].kind == Kind::written) frames.push_back(trace_.events[at].frame);
  }
  return frames;
}

std::shared_ptr<ReplayedCharacteristic> Replay::find(const Uuid& uuid) const {
  const auto found = std::ranges::find(characteristics_, uuid, &ReplayedCharacteristic::UUID);
  return found == characteristics_.end() ? nullptr : *found;
}

void Replay::writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType) {
  const std::size_t at = placeOf(value, to->UUID());
  const bool isKnown = at < trace_.events.size();
  if (isKnown && at >= position_) position_ = at + 1;
  queue_->async([weak = weak_from_this(), at, isKnown, to, connection = connection_.load()] {
    const auto self = weak.lock();
    if (!self || !self->isStill(connection)) return;
    if (isKnown) return self->play(at, connection);
    self->events_.didWrite(self, to, std::nullopt);
  });
}

/// Where the frame is in the trace: next, or when it is not its turn where it was written last, since a host
/// that is faster than the one of the trace may make a link anew that was kept there; or later.
std::size_t Replay::placeOf(const Bytes& frame, const Uuid& characteristic) const {
  const auto& events = trace_.events;
  const auto isIt = [&](const TraceEvent& event) {
    return event.kind == Kind::written && event.frame == frame && event.characteristic == characteristic;
  };
  const std::size_t next = nextOf(Kind::written, position_);
  if (next < events.size() && isIt(events[next])) return next;
  for (std::size_t at = position_; at-- > 0;) {
    if (isIt(events[at])) return at;
  }
  std::size_t at = position_;
  while (at < events.size() && !isIt(events[at])) ++at;
  return at;
}

/// Until the host has to say something again, or ends the connection.
void Replay::play(std::size_t written, unsigned connection) {
  const auto& events = trace_.events;
  std::size_t at = written + 1;
  for (; at < events.size() && events[at].kind != Kind::written; ++at) {
    scheduler_->sleep(std::max(Duration{0}, events[at].at - events[at - 1].at));
    if (!isStill(connection)) return;
    deliver(events[at]);
  }
  if (at == events.size() || !onDue_) return;
  scheduler_->sleep(std::max(Duration{0}, events[at].at - events[at - 1].at));
  if (position_ == written + 1) onDue_(events[at].frame);
}

void Replay::deliver(const TraceEvent& event) {
  const auto characteristic = find(event.characteristic);
  if (event.kind == Kind::closed && isOpen_.exchange(false)) return events_.didDisconnect();
  if (characteristic == nullptr) return;
  const auto self = shared_from_this();
  switch (event.kind) {
    case Kind::acknowledged:
      return events_.didWrite(self, characteristic, std::nullopt);
    case Kind::refused:
      return events_.didWrite(
          self, characteristic,
          Error("kwt.replay", 1, {{"NSLocalizedDescription", "refused as in the trace"}}));
    case Kind::notified:
      characteristic->set(event.frame);
      return events_.didUpdate(self, characteristic, std::nullopt);
    default:
      break;
  }
}

}  // namespace

std::shared_ptr<ReplayLink> ReplayLink::create(std::shared_ptr<Scheduler> scheduler, RecordedTrace trace) {
  return std::make_shared<Replay>(std::move(scheduler), std::move(trace));
}

}  // namespace kwtsdk::tool
