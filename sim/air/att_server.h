#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <utility>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/peripheral.h>

#include "sim/air/att.h"
#include "sim/air/gatt_table.h"

namespace kwtsdk::sim {

/// What a PDU leads to.
struct AttReaction {
  static AttReaction answer(Bytes response) { return {std::move(response), std::nullopt, std::nullopt}; }
  static AttReaction refusal(std::uint8_t request, std::uint16_t handle, std::uint8_t code) {
    return answer(att::error(request, handle, code));
  }

  struct Write {
    std::shared_ptr<Characteristic> target;
    Bytes value;
    WriteType type;
  };
  struct Subscription {
    std::shared_ptr<Characteristic> target;
    bool enabled;
  };

  std::optional<Bytes> response;  // none for a write that the recorder has yet to take
  std::optional<Write> write;
  std::optional<Subscription> subscription;
};

/// The server's side of one connection's Attribute Protocol: PDUs in, PDUs out. What comes from the air may
/// be anything; each request gets one response. One thread at a time.
class AttServer {
 public:
  /// `mtu` is what the server offers, 23 to 517.
  AttServer(GattTable table, std::size_t mtu);

  AttReaction take(std::span<const std::uint8_t> pdu);

  /// The response to the write that the recorder has taken or refused; none when there is none to answer.
  std::optional<Bytes> writeDone(const Characteristic& target, const MaybeError& error);

  Bytes notification(const Characteristic& source, const Bytes& value) const;

  /// As negotiated so far.
  std::size_t mtu() const { return mtu_; }

 private:
  using Pdu = std::span<const std::uint8_t>;
  struct Form;
  static const Form kForms[];
  struct PendingWrite {
    std::uint8_t opcode;
    std::uint16_t handle;
    std::shared_ptr<Characteristic> target;
  };
  struct PreparedWrite {
    std::uint16_t handle;
    Bytes value;
    bool contiguous;
  };

  AttReaction exchangeMtu(Pdu pdu);
  AttReaction findInformation(Pdu pdu);
  AttReaction findByTypeValue(Pdu pdu);
  AttReaction readByType(Pdu pdu);
  AttReaction readByGroupType(Pdu pdu);
  AttReaction read(Pdu pdu);
  AttReaction readBlob(Pdu pdu);
  AttReaction write(Pdu pdu);
  AttReaction writeCommand(Pdu pdu);
  AttReaction prepareWrite(Pdu pdu);
  AttReaction executeWrite(Pdu pdu);

  const Attribute* at(std::uint16_t handle) const;
  std::span<const Attribute> inRange(Pdu pdu) const;
  AttReaction readFrom(Pdu pdu, std::size_t offset) const;
  std::uint8_t writeError(std::uint16_t handle) const;
  AttReaction store(std::uint8_t opcode, std::uint16_t handle, Bytes value);
  AttReaction configure(std::uint8_t opcode, Attribute& attribute, const Bytes& value);

  const std::size_t offeredMtu_;
  GattTable table_;  // with this connection's configurations
  std::size_t mtu_;
  std::optional<PendingWrite> pending_;
  std::optional<PreparedWrite> prepared_;
};

}  // namespace kwtsdk::sim
