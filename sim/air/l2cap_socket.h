#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <kwtsdk/bytes.h>

#include "platform/posix/files.h"
#include "sim/air/identifiers.h"

namespace kwtsdk::sim {

struct L2capPeer {
  BluetoothAddress address;
  std::uint8_t addressType = 0;
};

/// A central's unenhanced ATT bearer.
class L2capConnection {
 public:
  L2capConnection(internal::Descriptor socket, const L2capPeer& peer)
      : socket_(std::move(socket)), peer_(peer) {}

  int descriptor() const { return socket_.get(); }
  const L2capPeer& peer() const { return peer_; }

  /// The next packet; none once the connection has ended. Blocks until then.
  std::optional<Bytes> receive() const;

  /// Blocks while the controller has no room, at most half a minute. A packet that cannot be sent ends the
  /// connection; one for a connection that has ended is dropped. Any thread.
  void send(const Bytes& packet) const;

  /// Ends the connection and whatever blocks on it. Any thread.
  void shutdown() const;

 private:
  const internal::Descriptor socket_;
  const L2capPeer peer_;
};

/// Takes connections for the Attribute Protocol at one controller. Of several programs that listen there,
/// such as the Bluetooth service, the kernel gives a connection to the last one that began to.
class L2capListener {
 public:
  /// Throws std::runtime_error whose text says what to do.
  explicit L2capListener(const BluetoothAddress& address);

  int descriptor() const { return socket_.get(); }

  /// Null when whoever connected has gone again. Never blocks. Throws as the constructor does.
  std::shared_ptr<L2capConnection> accept() const;

 private:
  BluetoothAddress address_;
  internal::Descriptor socket_;
};

}  // namespace kwtsdk::sim
