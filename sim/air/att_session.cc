#include "sim/air/att_session.h"

#include <utility>

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
      : server(std::move(table), mtu), transport_(std::move(transport)) {}

  void send(const Bytes& pdu) const { transport_.send(pdu); }
  void close() const { transport_.close(); }

  AttServer server;

 private:
  const Transport transport_;
};

AttSession::AttSession(const SimulatedRecorder& recorder, const std::string& deviceName,
                       const Transport& transport)
    : recorder_(recorder),
      bearer_(
          std::make_shared<Bearer>(gattTable(*recorder.link, deviceName), mtuOf(*recorder.link), transport)) {
  recorder_.model->setLinkMtu(bearer_->server.mtu());
  recorder_.link->connect();
  recorder_.link->setEvents(
      [bearer = bearer_](const auto&, const auto& target, const MaybeError& error) {
        if (const auto response = bearer->server.writeDone(*target, error)) bearer->send(*response);
      },
      [bearer = bearer_](const auto&, const auto& source, const auto&) {
        bearer->send(bearer->server.notification(*source, source->value().value()));
      });
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
  AttReaction reaction = bearer_->server.take(pdu);
  recorder_.model->setLinkMtu(bearer_->server.mtu());
  // The response is on the air before anything that follows from the PDU.
  if (reaction.response) bearer_->send(*reaction.response);
  const auto peripheral = recorder_.link->peripheral();
  if (reaction.subscription) {
    peripheral->setNotifyValue(reaction.subscription->enabled, reaction.subscription->target);
  }
  if (reaction.write) {
    peripheral->writeValue(reaction.write->value, reaction.write->target, reaction.write->type);
  }
}

}  // namespace kwtsdk::sim
