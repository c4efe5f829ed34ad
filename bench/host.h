#pragma once

#include <functional>
#include <memory>
#include <utility>

#include <kwtsdk/kwtsdk.h>

#include "platform/gatt/closable_queue.h"
#include "tests/support/fake_peripheral.h"

namespace kwtsdk::bench {

/// The least that a link can be: one thread that acknowledges every write and notifies its answer.
class InstantLink : public Peripheral {
 public:
  using Handler = std::function<void(const Bytes& frame, const std::shared_ptr<Characteristic>& written)>;

  explicit InstantLink(Handler onWrite) : onWrite_(std::move(onWrite)), queue_(*threadScheduler(), "link") {}
  void stop() { queue_.close(); }

  PeripheralState state() const override { return PeripheralState::connected; }
  void writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType) override {
    queue_.async([this, value, to] { onWrite_(value, to); });
  }
  void setNotifyValue(bool, const std::shared_ptr<Characteristic>&) override {}
  std::size_t maximumWriteValueLengthForType(WriteType) const override { return 512; }

 private:
  const Handler onWrite_;
  internal::ClosableQueue queue_;  // last, so that its thread ends first
};

/// The library's defaults but for the log, which is discarded, and what no benchmark needs.
Platform quietPlatform(const std::shared_ptr<Scheduler>& scheduler = threadScheduler());

/// A facade on real threads, with its log discarded, on an instant link. `answer` gives the reply to each
/// frame, or none; it is asked on the link's thread after the acknowledgement was forwarded.
class Host {
 public:
  using Answer = std::function<std::optional<Bytes>(const Bytes& frame)>;

  explicit Host(Answer answer);
  ~Host() { link_->stop(); }
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  using Channel = std::shared_ptr<testing::FakeCharacteristic>;
  void notify(const Channel& channel) {
    helper->didUpdateValueForCharacteristic(link_, channel, std::nullopt);
  }

  const Channel statusWrite, statusNotify, fileWrite, fileNotify, firmware;
  const std::shared_ptr<KWTBluetoothHelper> helper;

 private:
  void handle(const Bytes& frame, const std::shared_ptr<Characteristic>& written);

  const Answer answer_;
  const std::shared_ptr<InstantLink> link_;
};

}  // namespace kwtsdk::bench
