#include "bench/host.h"

namespace kwtsdk::bench {
namespace {

class DiscardingLog : public Log {
 public:
  void write(LogLevel, std::string_view) override {}
};

Host::Channel channel(const char* uuid, std::uint32_t property) {
  return std::make_shared<testing::FakeCharacteristic>(uuid, property);
}

}  // namespace

void InstantLink::stop() {
  {
    const internal::MutexLock lock(mutex_);
    stopped_ = true;
  }
  changed_.notifyOne();
  if (thread_.joinable()) thread_.join();
}

void InstantLink::writeValue(const Bytes& value, const std::shared_ptr<Characteristic>& to, WriteType) {
  {
    const internal::MutexLock lock(mutex_);
    writes_.push_back({value, to});
  }
  changed_.notifyOne();
}

std::optional<InstantLink::Write> InstantLink::next() {
  const internal::MutexLock lock(mutex_);
  while (!stopped_ && writes_.empty()) changed_.wait(mutex_);
  if (stopped_) return std::nullopt;
  auto write = std::move(writes_.front());
  writes_.pop_front();
  return write;
}

void InstantLink::run() {
  while (const auto write = next()) onWrite_(write->frame, write->written);
}

Host::Host(Answer answer)
    : statusWrite(channel("CA2A", characteristic_property::write)),
      statusNotify(channel("C92A", characteristic_property::notify)),
      fileWrite(channel(wire::CHARACTERISTIC_WRITE, characteristic_property::write)),
      fileNotify(channel(wire::CHARACTERISTIC_NOTIFY, characteristic_property::notify)),
      firmware(channel(wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                       characteristic_property::write | characteristic_property::notify)),
      helper(KWTBluetoothHelper::create({.scheduler = threadScheduler(),
                                         .settings = nullptr,
                                         .opusConverter = nullptr,
                                         .log = std::make_shared<DiscardingLog>()})),
      answer_(std::move(answer)),
      link_(std::make_shared<InstantLink>(
          [this](const Bytes& frame, const auto& written) { handle(frame, written); })) {
  helper->setConnectedPeripheral(link_);
  for (const auto& each : {statusWrite, statusNotify, fileWrite, fileNotify, firmware}) {
    helper->addDiscoveredCharacteristic(each);
  }
}

void Host::handle(const Bytes& frame, const std::shared_ptr<Characteristic>& written) {
  helper->didWriteValueForCharacteristic(link_, written, std::nullopt);
  const auto reply = answer_(frame);
  if (!reply) return;
  const Channel& notified = written == firmware      ? firmware
                            : written == statusWrite ? statusNotify
                                                     : fileNotify;
  notified->setValue(*reply);
  notify(notified);
}

}  // namespace kwtsdk::bench
