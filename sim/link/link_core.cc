#include "sim/link/link_core.h"

#include <algorithm>
#include <exception>
#include <utility>

namespace kwtsdk::sim {

using internal::MutexLock;

namespace {

bool isInstant(const LinkTiming& timing) {
  return timing.latency == Duration::zero() && timing.connectionInterval == Duration::zero();
}

}  // namespace

LinkCore::LinkCore(std::shared_ptr<Scheduler> scheduler, std::shared_ptr<RecorderModel> model,
                   const LinkTiming& timing, std::shared_ptr<FaultPlan> faults)
    : scheduler_(std::move(scheduler)),
      model_(std::move(model)),
      timing_(timing),
      instant_(isInstant(timing)),
      queue_(*scheduler_, "kwt.sim.link"),
      faults_(std::move(faults)),
      air_(timing, scheduler_->now()),
      pace_(*scheduler_, Microphone::kPacketDuration) {
  queue_.async([] {});  // where no thread can be had there is no link
}

PeripheralState LinkCore::state() const {
  const MutexLock lock(mutex_);
  return state_;
}

// What a host asks for

void LinkCore::writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& target, WriteType type) {
  if (const auto known = ours(target)) {
    enqueueNow([this, value, known, type, at = ready()] { carryWrite(value, known, type, at); });
  }
}

void LinkCore::setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& target) {
  const auto known = ours(target);
  if (known && known->has(characteristic_property::notify)) {
    enqueueNow([this, enabled, known, at = ready()] { carrySubscription(enabled, known, at); });
  }
}

void LinkCore::connect() {
  const MutexLock lock(mutex_);
  state_ = PeripheralState::connected;
}

void LinkCore::disconnect() {
  const auto next = loseLink();
  if (!next) return;
  // Behind the work that runs now, which may still hand the model a frame of the lost connection. Without the
  // memory for that the host finds out when it writes.
  try {
    submit([this, next] { tellOfLoss(*next); });
  } catch (const std::exception&) {
    return;
  }
}

void LinkCore::tellOfLoss(Generation next) noexcept {
  try {
    tellModelOf(next);
    events_.didDisconnect();
  } catch (...) {
    return;
  }
}

/// Nobody above it could do anything about what the work throws, which is that the machine has no more memory
/// or threads: it ends the connection.
void LinkCore::carryOut(const std::function<void()>& work) noexcept {
  try {
    return work();
  } catch (...) {
    if (const auto next = loseLink()) tellOfLoss(*next);
  }
}

void LinkCore::close() {
  loseLink();
  queue_.close();
  pace_.stop();
  model_->linkLost();
}

/// The generation of the next connection; none when the link was lost already.
std::optional<LinkCore::Generation> LinkCore::loseLink() {
  const MutexLock lock(mutex_);
  if (state_ == PeripheralState::disconnected) return std::nullopt;
  state_ = PeripheralState::disconnected;
  subscriptions_.clear();
  return ++generation_;
}

void LinkCore::drain() {
  const auto reached = scheduler_->semaphore("kwt.sim.link.drain");
  barrier(reached);
  reached->wait(std::nullopt);
}

void LinkCore::barrier(const std::shared_ptr<Semaphore>& reached) {
  queue_.async([self = shared_from_this(), reached] {
    bool isWaiting = self->pending_ != 0;
    try {
      if (isWaiting) self->barrier(reached);
    } catch (const std::exception&) {
      isWaiting = false;  // rather too early than never
    }
    if (!isWaiting) reached->signal();
  });
}

LinkCore::CharacteristicPtr LinkCore::ours(const std::shared_ptr<Characteristic>& characteristic) const {
  const auto found = std::ranges::find(characteristics_, characteristic);
  return found == characteristics_.end() ? nullptr : *found;
}

Duration LinkCore::ready() const { return instant_ ? Duration::zero() : scheduler_->now(); }

// Work on the queue

void LinkCore::enqueueNow(std::function<void()> work) {
  Generation generation = 0;
  {
    const MutexLock lock(mutex_);
    if (state_ != PeripheralState::connected) return;
    generation = generation_;
  }
  enqueue(generation, std::move(work));
}

void LinkCore::enqueue(Generation generation, std::function<void()> work) {
  submit([this, generation, work = std::move(work)] {
    running_ = generation;
    if (stale()) return;
    tellModelOf(generation);
    work();
  });
}

void LinkCore::submit(std::function<void()> work) {
  ++pending_;
  try {
    queue_.async([self = shared_from_this(), work = std::move(work)] {
      self->carryOut(work);
      --self->pending_;
    });
  } catch (...) {
    --pending_;
    throw;
  }
}

/// A host may connect again before the loss has been worked off: the model must learn of it first, and once.
void LinkCore::tellModelOf(Generation generation) {
  if (modelled_ >= generation) return;
  modelled_ = generation;
  pace_.stop();
  model_->linkLost();
}

bool LinkCore::stale() const {
  const MutexLock lock(mutex_);
  return running_ != generation_;
}

/// None once the connection is lost that the work under way belongs to.
}  // namespace kwtsdk::sim
