// Discovery and reading: what a central learns of the attribute table.

#include <algorithm>
#include <limits>
#include <utility>

#include "sim/air/att_server.h"
#include "sim/air/identifiers.h"
#include "sim/byte_order.h"

namespace kwtsdk::sim {

namespace {

bool isRange(std::span<const std::uint8_t> pdu) {
  return little16(pdu, 1) != 0 && little16(pdu, 1) <= little16(pdu, 3);
}

/// A response's entries: all of the first one's size, and as many as there is room for.
class Entries {
 public:
  explicit Entries(std::size_t room) : room_(room) {}

  /// False: this one and what follows goes into another response.
  bool add(std::span<const std::uint8_t> entry) {
    if (all_.empty()) {
      entry =
          entry.first(std::min<std::size_t>({entry.size(), room_, std::numeric_limits<std::uint8_t>::max()}));
      size_ = entry.size();
    }
    if (entry.size() != size_ || all_.size() + size_ > room_) return false;
    append(all_, entry);
    return true;
  }

  bool empty() const { return all_.empty(); }
  std::uint8_t size() const { return static_cast<std::uint8_t>(size_); }

  /// None: no attribute fits the request.
  AttReaction after(Bytes head, std::span<const std::uint8_t> request) const {
    if (empty()) return AttReaction::refusal(request[0], little16(request, 1), att::attributeNotFound);
    append(head, all_);
    return AttReaction::answer(std::move(head));
  }

 private:
  const std::size_t room_;
  std::size_t size_ = 0;
  Bytes all_;
};

}  // namespace

std::span<const Attribute> AttServer::inRange(Pdu pdu) const {
  const std::size_t first = little16(pdu, 1), last = std::min<std::size_t>(little16(pdu, 3), table_.size());
  if (first > last) return {};
  return std::span(table_).subspan(first - 1, last - first + 1);
}

AttReaction AttServer::findInformation(Pdu pdu) {
  if (!isRange(pdu)) return AttReaction::refusal(pdu[0], little16(pdu, 1), att::invalidHandle);
  Entries entries(mtu_ - 2);
  for (const Attribute& attribute : inRange(pdu)) {
    Bytes entry;
    appendLittle16(entry, attribute.handle);
    append(entry, attUuid(attribute.type));
    if (!entries.add(entry)) break;
  }
  constexpr std::uint8_t shortUuids = 1, longUuids = 2, shortEntry = 4;
  return entries.after({att::responseTo(pdu[0]), entries.size() == shortEntry ? shortUuids : longUuids}, pdu);
}

AttReaction AttServer::findByTypeValue(Pdu pdu) {
  if (!isRange(pdu)) return AttReaction::refusal(pdu[0], little16(pdu, 1), att::invalidHandle);
  const auto type = uuidFromAtt(pdu.subspan(5, 2));
  Entries entries(mtu_ - 1);
  for (const Attribute& attribute : inRange(pdu)) {
    if (attribute.type != type || !attribute.value) continue;
    if (!std::ranges::equal(*attribute.value, pdu.subspan(7))) continue;
    Bytes entry;
    appendLittle16(entry, attribute.handle);
    appendLittle16(entry, attribute.groupEnd);
    if (!entries.add(entry)) break;
  }
  return entries.after({att::responseTo(pdu[0])}, pdu);
}

AttReaction AttServer::readByType(Pdu pdu) {
  const auto type = uuidFromAtt(pdu.subspan(5));
  if (!type) return AttReaction::refusal(pdu[0], 0, att::invalidPdu);
  if (!isRange(pdu)) return AttReaction::refusal(pdu[0], little16(pdu, 1), att::invalidHandle);
  Entries entries(mtu_ - 2);
  for (const Attribute& attribute : inRange(pdu)) {
    if (attribute.type != *type) continue;
    if (!attribute.value) {
      if (entries.empty()) return AttReaction::refusal(pdu[0], attribute.handle, att::readNotPermitted);
      break;
    }
    Bytes entry;
    appendLittle16(entry, attribute.handle);
    append(entry, *attribute.value);
    if (!entries.add(entry)) break;
  }
  return entries.after({att::responseTo(pdu[0]), entries.size()}, pdu);
}

AttReaction AttServer::readByGroupType(Pdu pdu) {
  const auto type = uuidFromAtt(pdu.subspan(5));
  if (!type) return AttReaction::refusal(pdu[0], 0, att::invalidPdu);
  if (!isRange(pdu)) return AttReaction::refusal(pdu[0], little16(pdu, 1), att::invalidHandle);
  if (type != shortUuid(att::primaryService) && type != shortUuid(att::secondaryService)) {
    return AttReaction::refusal(pdu[0], little16(pdu, 1), att::unsupportedGroupType);
  }
  Entries entries(mtu_ - 2);
  for (const Attribute& attribute : inRange(pdu)) {
    if (attribute.type != *type) continue;
    Bytes entry;
    appendLittle16(entry, attribute.handle);
    appendLittle16(entry, attribute.groupEnd);
    append(entry, *attribute.value);
    if (!entries.add(entry)) break;
  }
  return entries.after({att::responseTo(pdu[0]), entries.size()}, pdu);
}

AttReaction AttServer::read(Pdu pdu) { return readFrom(pdu, 0); }

AttReaction AttServer::readBlob(Pdu pdu) { return readFrom(pdu, little16(pdu, 3)); }

AttReaction AttServer::readFrom(Pdu pdu, std::size_t offset) const {
  const std::uint16_t handle = little16(pdu, 1);
  const Attribute* const attribute = at(handle);
  if (!attribute) return AttReaction::refusal(pdu[0], handle, att::invalidHandle);
  if (!attribute->value) return AttReaction::refusal(pdu[0], handle, att::readNotPermitted);
  if (offset > attribute->value->size()) return AttReaction::refusal(pdu[0], handle, att::invalidOffset);
  const auto rest = std::span(*attribute->value).subspan(offset);
  Bytes response{att::responseTo(pdu[0])};
  append(response, rest.first(std::min(rest.size(), mtu_ - 1)));
  return AttReaction::answer(std::move(response));
}

}  // namespace kwtsdk::sim
