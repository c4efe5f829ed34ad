#include "sim/air/att_session.h"

#include <utility>

#include "platform/threads/mutex.h"
#include "sim/air/att_server.h"

namespace kwtsdk::sim {

namespace {

std::size_t mtuOf(const SimulatedLink& link) {
  constexpr std::size_t writeHead = 3;
  return link.peripheral()->maximumWriteValueLengthForType(WriteType::withoutResponse) + writeHead;
}

}  // namespace

/// What the link's events hold: an event that is running may outlast the session.
class AttSession::Bearer {
 public:
  Bearer(GattTable table, std::size_t mtu, Transport transport)
      : server_(std::move(table), mtu), transport_(std::move(transport)) {}

  std::size_t mtu() const {
    const internal::MutexLock lock(mutex_);
    return server_.mtu();
  }
  AttReaction take(std::span<const std::uint8_t> pdu) {
    const internal::MutexLock lock(mutex_);
    AttReaction reaction = server_.take(pdu);
    if (reaction.response) transport_.send(*reaction.response);
    return reaction;
  }
  void writeDone(const Characteristic& target, const MaybeError& error) {
    const internal::MutexLock lock(mutex_);
    if (const auto response = server_.writeDone(target, error)) transport_.send(*response);
  }
  void notify(const Characteristic& source) {
    const internal::MutexLock lock(mutex_);
    transport_.send(server_.notification(source, source.value().value()));
  }
  void close() const { transport_.close(); }

 private:
  // Held until a PDU is sent: a notification that fills a new MTU must not pass the response that grants it.
  mutable internal::Mutex mutex_;
  AttServer server_ KWT_GUARDED_BY(mutex_);
  const Transport transport_;
};

AttSession::AttSession(const SimulatedRecorder& recorder, const std::string& deviceName,
                       const Transport& transport)
    : recorder_(recorder),
      bearer_(
          std::make_shared<Bearer>(gattTable(*recorder.link, deviceName), mtuOf(*recorder.link), transport)) {
  recorder_.model->setLinkMtu(bearer_->mtu());
  recorder_.link->connect();
  recorder_.link->setEvents(
      [bearer = bearer_](const auto&, const auto& target, const MaybeError& error) {
        bearer->writeDone(*target, error);
      },
      [bearer = bearer_](const auto&, const auto& source, const auto&) { bearer->notify(*source); });
  // The end of the connection before may still be on its way here; it finds the link connected.
  recorder_.link->setOnDisconnect([bearer = bearer_, peripheral = recorder_.link->peripheral()] {
    if (peripheral->state() == PeripheralState::disconnected) bearer->close();
  });
}

AttSession::~AttSession() {
  recorder_.link->disconnect();
  recorder_.link->setEvents(nullptr, nullptr);
  recorder_.link->setOnDisconnect(nullptr);
}

void AttSession::receive(std::span<const std::uint8_t> pdu) {
  // The response is on the air before anything that follows from the PDU.
  const AttReaction reaction = bearer_->take(pdu);
  recorder_.model->setLinkMtu(bearer_->mtu());
  const auto peripheral = recorder_.link->peripheral();
  if (reaction.subscription) {
    peripheral->setNotifyValue(reaction.subscription->enabled, reaction.subscription->target);
  }
  if (reaction.write) {
    peripheral->writeValue(reaction.write->value, reaction.write->target, reaction.write->type);
  }
}

}  // namespace kwtsdk::sim
