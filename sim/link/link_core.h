#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <vector>

#include <kwtsdk/sim/simulated_link.h>

#include "platform/gatt/closable_queue.h"
#include "platform/threads/mutex.h"
#include "sim/link/pacing.h"
#include "sim/link/simulated_characteristic.h"

namespace kwtsdk::sim {

/// What happens between the two ends, and the recorder as the host's Bluetooth stack shows it. Everything
/// that travels is one piece of work on the link's queue, bound to the generation of the connection that it
/// began in: a lost link makes it stale. Packets that the recorder has ready queue up one at a time, so that
/// what a host writes meanwhile is served in between; those of a recording become ready one by one as they
/// are due.
class LinkCore : public Peripheral, public std::enable_shared_from_this<LinkCore> {
 public:
  using CharacteristicPtr = std::shared_ptr<SimulatedCharacteristic>;

  LinkCore(std::shared_ptr<Scheduler> scheduler, std::shared_ptr<RecorderModel> model,
           const LinkTiming& timing, std::shared_ptr<FaultPlan> faults);

  // ---- Any thread ----

  PeripheralState state() const override;
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& target, WriteType type) override;
  void setNotifyValue(bool enabled, const std::shared_ptr<Characteristic>& target) override;
  std::size_t maximumWriteValueLengthForType(WriteType type) const override;

  const std::vector<CharacteristicPtr>& characteristics() const { return characteristics_; }
  gatt::EventForwarder& events() { return events_; }
  void connect();
  void disconnect();
  void close();
  void drain();

 private:
  using Generation = std::uint64_t;

  CharacteristicPtr ours(const std::shared_ptr<Characteristic>& characteristic) const;
  Duration ready() const;
  void enqueueNow(std::function<void()> work);
  void submit(std::function<void()> work);
  std::optional<Generation> loseLink();

  // ---- The link's thread ----

  void enqueue(Generation generation, std::function<void()> work);
  void enqueueReply(std::function<void()> work) { enqueue(running_, std::move(work)); }
  void barrier(const std::shared_ptr<Semaphore>& reached);
  bool stale() const;
  void tellModelOf(Generation generation);
  void tellOfLoss(Generation next) noexcept;
  void carryOut(const std::function<void()>& work) noexcept;

  FaultAction decide(LinkEvent event);
  bool travel(const FaultAction& action, Duration ready, std::size_t transmissions = 1);
  MaybeError refusal(const FaultAction& action, const SimulatedCharacteristic& target, std::size_t length,
                     WriteType type) const;

  void carryWrite(Bytes value, const CharacteristicPtr& target, WriteType type, Duration ready);
  void carryAcknowledgement(const CharacteristicPtr& target, MaybeError error, Duration ready);
  void carryNotification(Notification notification, Duration ready);
  void carrySubscription(bool enabled, const CharacteristicPtr& target, Duration ready);
  void handToModel(Channel channel, const Bytes& value);
  void followRecording();
  void startPump(Duration ready);
  void pump(Duration ready);

  CharacteristicPtr subscribed(Channel channel) const;
  using Event = decltype(&gatt::EventForwarder::didWrite);
  void deliver(Event event, const CharacteristicPtr& source, const MaybeError& error,
               const FaultAction& action);

  const std::shared_ptr<Scheduler> scheduler_;
  const std::shared_ptr<RecorderModel> model_;
  const LinkTiming timing_;
  const bool instant_;
  const std::vector<CharacteristicPtr> characteristics_ = recorderCharacteristics();
  internal::ClosableQueue queue_;
  gatt::EventForwarder events_;
  std::atomic<std::size_t> pending_{0};

  mutable internal::Mutex mutex_;
  PeripheralState state_ KWT_GUARDED_BY(mutex_) = PeripheralState::connected;
  Generation generation_ KWT_GUARDED_BY(mutex_) = 1;
  std::set<CharacteristicPtr> subscriptions_ KWT_GUARDED_BY(mutex_);

  // Only on the link's thread.
  const std::shared_ptr<FaultPlan> faults_;
  AirTime air_;
  Duration arrived_{0};      // when the transmission under way reached the other end
  Pace pace_;                // of the recording that runs
  Generation running_ = 0;   // of the work that runs
  Generation pumping_ = 0;   // of the connection that a pump is queued for
  Generation modelled_ = 1;  // the connection that the model believes in
};

}  // namespace kwtsdk::sim
