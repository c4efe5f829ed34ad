#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/sim/simulated_recorder.h>

namespace kwtsdk::sim {

/// One central's connection, as a host of the simulated link: what it writes goes over the link, and what the
/// link says goes to it. So the link's timing and faults show on the air. One at a time for each recorder,
/// whose link has to be disconnected before.
class AttSession {
 public:
  /// Where PDUs go, one at a time, and what ends the connection, also while a PDU is being sent; both on any
  /// thread. Neither may call the session.
  struct Transport {
    std::function<void(const Bytes& pdu)> send;
    std::function<void()> close;
  };

  AttSession(const SimulatedRecorder& recorder, const std::string& deviceName, const Transport& transport);

  /// Disconnects the link.
  ~AttSession();
  AttSession(const AttSession&) = delete;
  AttSession& operator=(const AttSession&) = delete;

  /// A PDU from the central. One thread at a time.
  void receive(std::span<const std::uint8_t> pdu);

 private:
  class Bearer;

  const SimulatedRecorder recorder_;
  const std::shared_ptr<Bearer> bearer_;
};

}  // namespace kwtsdk::sim
