#pragma once

#include <chrono>

#include <kwtsdk/bytes.h>
#include <kwtsdk/export.h>
#include <kwtsdk/scheduler.h>

namespace kwtsdk::sim {

/// What a simulated recorder hears, as Opus packets. Called by the model, from one thread at a time, under
/// its lock: it must not call the model and should take much less time than a packet lasts. Must not throw.
class KWTSDK_EXPORT Microphone {
 public:
  /// The sound in one packet.
  static constexpr Duration kPacketDuration = std::chrono::milliseconds(20);

  virtual ~Microphone() = default;

  /// A recording begins: the next packet is the first of a stream.
  virtual void start() = 0;

  /// The next 20 ms as one Opus packet, at most 65535 bytes.
  virtual Bytes nextPacket() = 0;
};

}  // namespace kwtsdk::sim
