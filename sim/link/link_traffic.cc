// What travels over the link, one kind after the other; all of it on the link's thread.

#include <algorithm>
#include <exception>
#include <utility>

#include "sim/link/link_core.h"

namespace kwtsdk::sim {

using internal::MutexLock;

namespace {

constexpr std::size_t kLongestValue = 512;  // of an attribute
constexpr std::size_t kAttHead = 3, kPreparedWriteHead = 5;

enum AttError : std::int64_t { writeNotPermitted = 0x03, invalidValueLength = 0x0D };

Error attError(AttError code, const char* text) {
  return {"kwt.sim.link", code, {{"NSLocalizedDescription", text}}};
}

/// A value too long for one packet goes in prepared writes and one that executes them.
std::size_t writePackets(std::size_t length, std::size_t mtu) {
  if (length + kAttHead <= mtu) return 1;
  const std::size_t part = mtu - kPreparedWriteHead;
  return (length + part - 1) / part + 1;
}

void corrupt(Bytes& value, const FaultAction& action) {
  if (action.fault != Fault::corrupt || value.empty()) return;
  std::uint8_t& byte = value[action.position % value.size()];
  byte = static_cast<std::uint8_t>(~byte);
}

int copies(const FaultAction& action) { return action.fault == Fault::duplicate ? 2 : 1; }

}  // namespace

std::size_t LinkCore::maximumWriteValueLengthForType(WriteType type) const {
  return type == WriteType::withResponse ? kLongestValue : timing_.mtu - kAttHead;
}

FaultAction LinkCore::decide(LinkEvent event) {
  if (!faults_) return {};
  const FaultAction action = faults_->next(event);
  return faultApplies(action.fault, event) ? action : FaultAction{};
}

/// Waits until the transmission has arrived; false when it has not.
bool LinkCore::travel(const FaultAction& action, Duration ready, std::size_t transmissions) {
  if (!instant_) {
    arrived_ = air_.reserve(ready, transmissions) + timing_.latency;
    const Duration now = scheduler_->now();
    if (arrived_ > now) scheduler_->sleep(arrived_ - now);
  }
  if (action.fault == Fault::delay) {
    scheduler_->sleep(action.delay);
    arrived_ += action.delay;
    air_.hold(arrived_ - timing_.latency);
  }
  if (stale() || action.fault == Fault::drop) return false;
  if (action.fault != Fault::disconnect) return true;
  disconnect();
  return false;
}

void LinkCore::carryWrite(Bytes value, const CharacteristicPtr& target, WriteType type, Duration ready) {
  const FaultAction action = decide(LinkEvent::write);
  if (!travel(action, ready, writePackets(value.size(), timing_.mtu))) return;
  const MaybeError error = refusal(action, *target, value.size(), type);
  if (type == WriteType::withResponse) {
    enqueueReply([this, target, error, at = std::max(arrived_, air_.nextInterval())] {
      carryAcknowledgement(target, error, at);
    });
  }
  if (error) return;
  corrupt(value, action);
  for (int i = 0; i < copies(action); ++i) handToModel(target->channel(), value);
}

MaybeError LinkCore::refusal(const FaultAction& action, const SimulatedCharacteristic& target,
                             std::size_t length, WriteType type) const {
  if (action.fault == Fault::refuse || !target.has(characteristic_property::write)) {
    return attError(writeNotPermitted, "the recorder refused the write: not permitted (ATT error 0x03)");
  }
  if (length > maximumWriteValueLengthForType(type)) {
    return attError(invalidValueLength, "the recorder refused the write: too long (ATT error 0x0D)");
  }
  return std::nullopt;
}

void LinkCore::handToModel(Channel channel, const Bytes& value) {
  // Sound that became due while the frame was under way precedes its answer.
  while (pumping_ != running_ && pace_.takeDue()) model_->recordPacket();
  if (auto reply = model_->write(channel, value)) {
    Notification notification{channel, std::move(*reply)};
    enqueueReply([this, notification = std::move(notification), at = arrived_] {
      carryNotification(notification, at);
    });
  }
  followRecording();
  if (model_->streaming()) startPump(arrived_);
}

void LinkCore::followRecording() {
  if (!model_->recording()) return pace_.stop();
  if (pace_.running()) return;
  pace_.start([weak = weak_from_this(), generation = running_] {
    const auto self = weak.lock();
    if (!self) return;
    try {
      self->enqueue(generation, [core = self.get(), at = self->ready()] { core->startPump(at); });
    } catch (const std::exception&) {
      return;  // the next tick makes up for it
    }
  });
}

void LinkCore::startPump(Duration ready) {
  if (pumping_ == running_) return;
  pumping_ = running_;
  enqueueReply([this, ready] { pump(ready); });
}

void LinkCore::pump(Duration ready) {
  // One at a time here too: a link that is too slow for the sound must not pile it up.
  if (pace_.takeDue()) model_->recordPacket();
  followRecording();  // which the device may have ended
  auto packet = model_->nextPacket();
  if (!packet) {
    pumping_ = 0;
    return;
  }
  carryNotification(std::move(*packet), ready);
  enqueueReply([this, ready] { pump(ready); });
}

void LinkCore::carryAcknowledgement(const CharacteristicPtr& target, MaybeError error, Duration ready) {
  const FaultAction action = decide(LinkEvent::acknowledgement);
  if (!travel(action, ready)) return;
  if (action.fault == Fault::refuse) {
    error = attError(writeNotPermitted, "the recorder reported the write as not permitted (ATT error 0x03)");
  }
  deliver(&gatt::EventForwarder::didWrite, target, error, action);
}

void LinkCore::carryNotification(Notification notification, Duration ready) {
  const CharacteristicPtr source = subscribed(notification.channel);
  if (!source) return;
  const FaultAction action = decide(LinkEvent::notification);
  if (!travel(action, ready)) return;
  Bytes& value = notification.value;
  value.resize(std::min(value.size(), timing_.mtu - kAttHead));
  corrupt(value, action);
  source->setValue(std::move(value));
  deliver(&gatt::EventForwarder::didUpdate, source, std::nullopt, action);
}

void LinkCore::carrySubscription(bool enabled, const CharacteristicPtr& target, Duration ready) {
  const FaultAction action = decide(LinkEvent::subscription);
  if (!travel(action, ready) || action.fault == Fault::refuse) return;
  const MutexLock lock(mutex_);
  if (running_ != generation_) return;
  if (enabled) {
    subscriptions_.insert(target);
  } else {
    subscriptions_.erase(target);
  }
}

LinkCore::CharacteristicPtr LinkCore::subscribed(Channel channel) const {
  const MutexLock lock(mutex_);
  const auto found = std::ranges::find_if(
      subscriptions_, [channel](const auto& candidate) { return candidate->channel() == channel; });
  return found == subscriptions_.end() ? nullptr : *found;
}

void LinkCore::deliver(Event event, const CharacteristicPtr& source, const MaybeError& error,
                       const FaultAction& action) {
  for (int i = 0; i < copies(action); ++i) {
    if (stale()) return;
    (events_.*event)(shared_from_this(), source, error);
  }
}

}  // namespace kwtsdk::sim
