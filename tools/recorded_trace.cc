#include "tools/recorded_trace.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <span>
#include <utility>

#include "tools/btsnoop.h"
#include "tools/failure.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::tool {
namespace {

namespace att = btsnoop::att;
using Part = std::span<const std::uint8_t>;
using Kind = TraceEvent::Kind;

/// 0 where there is nothing.
std::uint64_t big(Part bytes, std::size_t at, std::size_t size) {
  std::uint64_t value = 0;
  for (std::size_t i = at; i < at + size; ++i) value = value << 8U | (i < bytes.size() ? bytes[i] : 0U);
  return value;
}

std::uint16_t little16(Part bytes, std::size_t at) {
  return at + 1 < bytes.size() ? static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8)
                               : std::uint16_t{0};
}

Part behind(Part bytes, std::size_t at) { return bytes.subspan(std::min(at, bytes.size())); }

Uuid uuidOf(Part onAir) {
  std::string digits;
  for (auto byte = onAir.rbegin(); byte != onAir.rend(); ++byte) {
    constexpr const char* hex = "0123456789ABCDEF";
    if (digits.size() == 8 || digits.size() == 13 || digits.size() == 18 || digits.size() == 23)
      digits += '-';
    digits.append({hex[*byte >> 4U], hex[*byte & 15U]});
  }
  return Uuid::fromString(digits).value_or(Uuid{});
}

/// The channel that frames like this one belong to, where the trace begins after the characteristics were
/// asked for.
Uuid guessed(Part frame, bool isSent) {
  const std::uint64_t head = big(frame, 0, 2);
  const char* channel = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY;
  constexpr std::array<std::uint64_t, 4> ofRecordings{0x5001, 0x1280, 0x0801, 0x0080};
  if (head == 0x99EC) {
    channel =
        isSent ? wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE : wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY;
  } else if (isSent && ((head & 0xFFU) == 0x81 || (head & 0xFFU) == 0x82)) {
    channel = wire::CHARACTERISTIC_WRITE;
  } else if (!isSent && ((head & 0xFFU) == 0x82 || std::ranges::count(ofRecordings, head) > 0)) {
    channel = wire::CHARACTERISTIC_NOTIFY;
  }
  return Uuid::fromString(channel).value();
}

class Reading {
 public:
  void packet(std::uint8_t type, bool isSent, Part packet, Duration at);
  RecordedTrace result() { return std::move(trace_); }

 private:
  void event(Part packet, Duration at);
  void attribute(Part pdu, bool isSent, Duration at);
  void declarations(Part pdu);
  void written(Part pdu, Duration at);
  void add(Kind kind, Duration at, Uuid characteristic = {}, Part frame = {});

  Uuid characteristicOf(std::uint16_t handle, Part frame, bool isSent) const {
    const auto known = handles_.find(handle);
    return known == handles_.end() ? guessed(frame, isSent) : known->second;
  }

  RecordedTrace trace_;
  bool isOpen_ = false;
  std::map<std::uint16_t, Uuid> handles_;
  std::map<std::pair<std::uint16_t, bool>, Bytes> begun_;  // packets of which parts are still to come
};

void Reading::packet(std::uint8_t type, bool isSent, Part packet, Duration at) {
  constexpr std::size_t aclHead = 4, channelHead = 4;
  if (type == btsnoop::kEvent) return event(packet, at);
  if (type != btsnoop::kAcl || packet.size() < aclHead) return;
  const std::uint16_t handle = little16(packet, 0);
  Bytes& whole = begun_[{static_cast<std::uint16_t>(handle & btsnoop::kHandleBits), isSent}];
  if ((handle & btsnoop::kPartBits) != btsnoop::kContinuation) whole.clear();
  const Part part = behind(packet, aclHead);
  whole.insert(whole.end(), part.begin(), part.end());
  if (whole.size() < channelHead || whole.size() < little16(whole, 0) + channelHead) return;
  const Bytes done = std::exchange(whole, {});
  if (little16(done, 2) == btsnoop::kAttChannel) attribute(behind(done, channelHead), isSent, at);
}

void Reading::event(Part packet, Duration at) {
  if (packet.size() < 3) return;
  if (packet[0] == btsnoop::kLowEnergy &&
      (packet[2] == btsnoop::kConnected || packet[2] == btsnoop::kConnectedEnhanced) && !isOpen_)
    add(Kind::opened, at);
  if (packet[0] == btsnoop::kDisconnected && isOpen_) add(Kind::closed, at);
}

void Reading::attribute(Part pdu, bool isSent, Duration at) {
  constexpr std::size_t handleAt = 1, valueAt = 3;
  if (pdu.empty()) return;
  const Part value = behind(pdu, valueAt);
  switch (pdu[0]) {
    case att::kMtuResponse:
      trace_.longestWrite = std::max<std::size_t>(little16(pdu, handleAt), 23) - valueAt;
      break;
    case att::kReadByTypeResponse:
      return declarations(pdu);
    case att::kWriteRequest:
    case att::kWriteCommand:
      return isSent ? written(pdu, at) : void();
    case att::kWriteResponse:
      return add(Kind::acknowledged, at);
    case att::kErrorResponse:
      return pdu.size() > 1 && pdu[1] == att::kWriteRequest ? add(Kind::refused, at) : void();
    case att::kNotification:
      return add(Kind::notified, at, characteristicOf(little16(pdu, handleAt), value, false), value);
    default:
      break;
  }
}

void Reading::declarations(Part pdu) {
  constexpr std::size_t valueHandleAt = 3, uuidAt = 5;
  const std::size_t size = pdu.size() > 1 ? pdu[1] : 0;
  if (size != uuidAt + 2 && size != uuidAt + 16) return;
  for (Part rest = behind(pdu, 2); rest.size() >= size; rest = behind(rest, size))
    handles_[little16(rest, valueHandleAt)] = uuidOf(rest.subspan(uuidAt, size - uuidAt));
}

/// Two bytes to what is no characteristic are a subscription, which says nothing that is not known.
void Reading::written(Part pdu, Duration at) {
  const Part value = behind(pdu, 3);
  const std::uint16_t handle = little16(pdu, 1);
  const bool isConfiguration = value.size() == 2 && value[1] == 0 && !handles_.contains(handle);
  if (!isConfiguration) add(Kind::written, at, characteristicOf(handle, value, true), value);
}

void Reading::add(Kind kind, Duration at, Uuid characteristic, Part frame) {
  if (!isOpen_ && kind != Kind::opened) trace_.events.push_back({Kind::opened, at});
  isOpen_ = kind != Kind::closed;
  // The answer to a subscription looks as one to a frame does.
  const auto& events = trace_.events;
  const bool isAnswer = kind == Kind::acknowledged || kind == Kind::refused;
  if (isAnswer) {
    const auto last = std::ranges::find_if(events.rbegin(), events.rend(),
                                           [](const TraceEvent& one) { return one.kind != Kind::notified; });
    if (last == events.rend() || last->kind != Kind::written) return;
    characteristic = last->characteristic;
  }
  trace_.events.push_back({kind, at, characteristic, Bytes(frame.begin(), frame.end())});
}

[[noreturn]] void throwUnreadable(const std::string& file, const std::string& reason) {
  throw Failure(ToolError::fileUnreadable, "Cannot replay " + file + ": " + reason + ".",
                "Name a btsnoop file, such as one that --trace has written.");
}

Bytes bytesOf(const std::string& file) {
  std::ifstream stream(file, std::ios::binary);
  Bytes content{std::istreambuf_iterator<char>(stream), {}};
  if (!stream) throwUnreadable(file, "it cannot be read");
  const bool isSnoop = content.size() >= btsnoop::kHeadSize &&
                       std::equal(btsnoop::kMagic.begin(), btsnoop::kMagic.end(), content.begin()) &&
                       big(content, 8, 4) == btsnoop::kVersion;
  if (!isSnoop) throwUnreadable(file, "it is no btsnoop file");
  return content;
}

/// Type and direction of a record's packet, and where it begins.
struct Head {
  std::uint8_t type;
  bool isSent;
  std::size_t size;
};

std::optional<Head> headOf(std::uint32_t datalink, std::uint32_t flags, Part packet) {
  if (datalink == btsnoop::kTyped)
    return packet.empty() ? std::nullopt
                          : std::optional(Head{packet[0], (flags & btsnoop::kReceived) == 0, 1});
  if (datalink == btsnoop::kPlain)
    return Head{(flags & btsnoop::kCommandOrEvent) != 0 ? btsnoop::kEvent : btsnoop::kAcl,
                (flags & btsnoop::kReceived) == 0, 0};
  const std::uint32_t opcode = flags & 0xFFFFU;
  if (opcode == btsnoop::kMonitorEvent) return Head{btsnoop::kEvent, false, 0};
  if (opcode == btsnoop::kMonitorAclSent || opcode == btsnoop::kMonitorAclReceived)
    return Head{btsnoop::kAcl, opcode == btsnoop::kMonitorAclSent, 0};
  return std::nullopt;
}

}  // namespace

RecordedTrace readTrace(const std::string& file) {
  const Bytes content = bytesOf(file);
  const auto datalink = static_cast<std::uint32_t>(big(content, 12, 4));
  if (datalink != btsnoop::kPlain && datalink != btsnoop::kTyped && datalink != btsnoop::kMonitor)
    throwUnreadable(file, "it has packets of another kind, " + std::to_string(datalink));
  Reading reading;
  const std::uint64_t began = big(content, btsnoop::kHeadSize + 16, 8);
  for (Part rest = behind(content, btsnoop::kHeadSize); rest.size() >= btsnoop::kRecordHeadSize;) {
    const auto size = static_cast<std::size_t>(big(rest, 4, 4));
    const auto flags = static_cast<std::uint32_t>(big(rest, 8, 4));
    const std::chrono::microseconds at(static_cast<std::int64_t>(big(rest, 16, 8) - began));
    rest = behind(rest, btsnoop::kRecordHeadSize);
    if (rest.size() < size) break;  // of a program that was killed
    const Part packet = rest.first(size);
    rest = behind(rest, size);
    if (const auto head = headOf(datalink, flags, packet))
      reading.packet(head->type, head->isSent, behind(packet, head->size), at);
  }
  RecordedTrace trace = reading.result();
  const bool isWritten =
      std::ranges::any_of(trace.events, [](const TraceEvent& event) { return event.kind == Kind::written; });
  if (!isWritten) throwUnreadable(file, "nothing was sent to a recorder in it");
  return trace;
}

}  // namespace kwtsdk::tool
