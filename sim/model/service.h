#pragma once

#include <optional>

#include <kwtsdk/bytes.h>

namespace kwtsdk::sim {

/// One group of commands on one channel.
class Service {
 public:
  virtual ~Service() = default;

  /// The answer to a frame; none for one that is malformed, that needs no answer or that is another
  /// service's.
  virtual std::optional<Bytes> handle(const Bytes& frame) = 0;

  /// What the service sends of its own accord after a command, packet by packet as the link takes it.
  virtual bool streaming() const { return false; }
  virtual std::optional<Bytes> nextPacket() { return std::nullopt; }

  /// The frame that started the stream.
  virtual Bytes streamRequest() const { return {}; }

  virtual void linkLost() {}
};

}  // namespace kwtsdk::sim
