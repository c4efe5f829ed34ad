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

Platform quietPlatform(const std::shared_ptr<Scheduler>& scheduler) {
  return {.scheduler = scheduler,
          .settings = nullptr,
          .opusConverter = nullptr,
          .log = std::make_shared<DiscardingLog>()};
}

Host::Host(Answer answer)
    : statusWrite(channel("CA2A", characteristic_property::write)),
      statusNotify(channel("C92A", characteristic_property::notify)),
      fileWrite(channel(wire::CHARACTERISTIC_WRITE, characteristic_property::write)),
      fileNotify(channel(wire::CHARACTERISTIC_NOTIFY, characteristic_property::notify)),
      firmware(channel(wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                       characteristic_property::write | characteristic_property::notify)),
      helper(KWTBluetoothHelper::create(quietPlatform())),
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
