#include "sim/air/att_server.h"

#include <algorithm>
#include <limits>
#include <utility>

#include "sim/byte_order.h"

namespace kwtsdk::sim {

namespace {

/// Client to server a request is even; responses, which clients have no business to send, are odd.
bool isRequest(std::uint8_t opcode) {
  return (opcode & 1) == 0 && (opcode & att::kCommandFlag) == 0 && opcode != att::handleValueConfirmation;
}

constexpr std::size_t kAnySize = std::numeric_limits<std::size_t>::max();

}  // namespace

struct AttServer::Form {
  att::Opcode opcode;
  std::size_t least, most;
  AttReaction (AttServer::*handler)(Pdu);
};

const AttServer::Form AttServer::kForms[]{
    {att::exchangeMtuRequest, 3, 3, &AttServer::exchangeMtu},
    {att::findInformationRequest, 5, 5, &AttServer::findInformation},
    {att::findByTypeValueRequest, 7, kAnySize, &AttServer::findByTypeValue},
    {att::readByTypeRequest, 7, 21, &AttServer::readByType},
    {att::readRequest, 3, 3, &AttServer::read},
    {att::readBlobRequest, 5, 5, &AttServer::readBlob},
    {att::readByGroupTypeRequest, 7, 21, &AttServer::readByGroupType},
    {att::writeRequest, 3, kAnySize, &AttServer::write},
    {att::prepareWriteRequest, 5, kAnySize, &AttServer::prepareWrite},
    {att::executeWriteRequest, 2, 2, &AttServer::executeWrite},
    {att::writeCommand, 3, kAnySize, &AttServer::writeCommand},
};

AttServer::AttServer(GattTable table, std::size_t mtu)
    : offeredMtu_(mtu), table_(std::move(table)), mtu_(att::kDefaultMtu) {}

AttReaction AttServer::take(Pdu pdu) {
  if (pdu.empty()) return {};
  const std::uint8_t opcode = pdu[0];
  const auto form = std::ranges::find(kForms, opcode, &Form::opcode);
  if (form == std::end(kForms)) {
    return isRequest(opcode) ? AttReaction::refusal(opcode, 0, att::requestNotSupported) : AttReaction{};
  }
  if (pdu.size() < form->least || pdu.size() > std::min(form->most, mtu_)) {
    return isRequest(opcode) ? AttReaction::refusal(opcode, 0, att::invalidPdu) : AttReaction{};
  }
  return (this->*form->handler)(pdu);
}

AttReaction AttServer::exchangeMtu(Pdu pdu) {
  mtu_ = std::clamp<std::size_t>(little16(pdu, 1), att::kDefaultMtu, offeredMtu_);
  Bytes response{att::responseTo(pdu[0])};
  appendLittle16(response, offeredMtu_);
  return AttReaction::answer(std::move(response));
}

const Attribute* AttServer::at(std::uint16_t handle) const {
  return handle == 0 || handle > table_.size() ? nullptr : &table_[handle - 1U];
}

AttReaction AttServer::write(Pdu pdu) {
  return store(pdu[0], little16(pdu, 1), {pdu.begin() + 3, pdu.end()});
}

AttReaction AttServer::writeCommand(Pdu pdu) {
  AttReaction reaction = write(pdu);
  reaction.response.reset();
  return reaction;
}

AttReaction AttServer::prepareWrite(Pdu pdu) {
  const std::uint16_t handle = little16(pdu, 1);
  const auto part = pdu.subspan(5);
  if (const auto error = writeError(handle)) return AttReaction::refusal(pdu[0], handle, error);
  if (!prepared_) prepared_ = {handle, {}, true};
  if (prepared_->handle != handle || prepared_->value.size() + part.size() > att::kLongestValue) {
    return AttReaction::refusal(pdu[0], handle, att::prepareQueueFull);
  }
  // A wrong offset is reported when the write is executed.
  if (little16(pdu, 3) != prepared_->value.size()) prepared_->contiguous = false;
  append(prepared_->value, part);
  Bytes response{att::responseTo(pdu[0])};
  append(response, pdu.subspan(1));
  return AttReaction::answer(std::move(response));
}

AttReaction AttServer::executeWrite(Pdu pdu) {
  constexpr std::uint8_t cancel = 0, executeAll = 1;
  if (pdu[1] > executeAll) return AttReaction::refusal(pdu[0], 0, att::invalidPdu);
  const auto prepared = std::exchange(prepared_, std::nullopt);
  if (!prepared || pdu[1] == cancel) return AttReaction::answer({att::responseTo(pdu[0])});
  if (!prepared->contiguous) return AttReaction::refusal(pdu[0], prepared->handle, att::invalidOffset);
  return store(pdu[0], prepared->handle, prepared->value);
}

std::uint8_t AttServer::writeError(std::uint16_t handle) const {
  const Attribute* const attribute = at(handle);
  if (!attribute) return att::invalidHandle;
  const bool writable = attribute->isConfiguration() ||
                        (attribute->isCharacteristicValue() &&
                         (attribute->characteristic->properties() & characteristic_property::write) != 0);
  return writable ? att::success : att::writeNotPermitted;
}

AttReaction AttServer::store(std::uint8_t opcode, std::uint16_t handle, Bytes value) {
  if (const auto error = writeError(handle)) return AttReaction::refusal(opcode, handle, error);
  if (value.size() > att::kLongestValue)
    return AttReaction::refusal(opcode, handle, att::invalidAttributeValueLength);
  Attribute& attribute = table_[handle - 1U];
  if (attribute.isConfiguration()) return configure(opcode, attribute, value);
  const auto& target = attribute.characteristic;
  if (opcode == att::writeCommand) {
    return {std::nullopt, {{target, std::move(value), WriteType::withoutResponse}}, std::nullopt};
  }
  if (pending_) return AttReaction::refusal(opcode, handle, att::insufficientResources);
  pending_ = {opcode, handle, target};
  return {std::nullopt, {{target, std::move(value), WriteType::withResponse}}, std::nullopt};
}

AttReaction AttServer::configure(std::uint8_t opcode, Attribute& attribute, const Bytes& value) {
  constexpr std::uint8_t notifications = 1;
  if (value.size() != attribute.value->size()) {
    return AttReaction::refusal(opcode, attribute.handle, att::invalidAttributeValueLength);
  }
  if (little16(value, 0) > notifications)
    return AttReaction::refusal(opcode, attribute.handle, att::valueNotAllowed);
  attribute.value = value;
  return {
      Bytes{att::responseTo(opcode)}, std::nullopt, {{attribute.characteristic, value[0] == notifications}}};
}

std::optional<Bytes> AttServer::writeDone(const Characteristic& target, const MaybeError& error) {
  if (!pending_ || pending_->target.get() != &target) return std::nullopt;
  const PendingWrite done = *std::exchange(pending_, std::nullopt);
  if (!error) return Bytes{att::responseTo(done.opcode)};
  constexpr std::int64_t greatest = std::numeric_limits<std::uint8_t>::max();
  const bool isCode = error->code() > 0 && error->code() <= greatest;
  const std::int64_t code = isCode ? error->code() : std::int64_t{att::unlikelyError};
  return att::error(done.opcode, done.handle, static_cast<std::uint8_t>(code));
}

Bytes AttServer::notification(const Characteristic& source, const Bytes& value) const {
  const auto attribute = std::ranges::find_if(table_, [&source](const Attribute& candidate) {
    return candidate.isCharacteristicValue() && candidate.characteristic.get() == &source;
  });
  Bytes pdu{att::handleValueNotification};
  appendLittle16(pdu, attribute->handle);
  append(pdu, std::span(value).first(std::min(value.size(), mtu_ - pdu.size())));
  return pdu;
}

}  // namespace kwtsdk::sim
