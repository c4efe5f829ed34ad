#include "sim/air/l2cap_socket.h"

#include <endian.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <string>

namespace kwtsdk::sim {

namespace {

/// The kernel's sockaddr_l2. Both numbers are little-endian.
struct L2capAddress {
  sa_family_t family;
  std::uint16_t psm;
  std::uint8_t address[6];
  std::uint16_t channel;
  std::uint8_t addressType;
};

constexpr int kL2capProtocol = 0;
constexpr std::uint16_t kAttChannel = 4;
constexpr std::uint8_t kPublicLeAddress = 1;

/// More than any MTU that the kernel lets a central use on this channel.
constexpr std::size_t kLongestPacket = 4096;

/// As long as an ATT transaction may take: after that the other end counts as gone.
constexpr time_t kSendSeconds = 30;

[[noreturn]] void fail(const BluetoothAddress& address) {
  throw std::runtime_error("Centrals cannot connect to the Bluetooth controller " + address.toString() +
                           " (" + std::strerror(errno) +
                           "): see whether it is still there with bluetoothctl list, and start again.");
}

}  // namespace

std::optional<Bytes> L2capConnection::receive() const {
  Bytes packet(kLongestPacket);
  const ssize_t size = ::recv(socket_.get(), packet.data(), packet.size(), 0);
  if (size <= 0) return std::nullopt;
  packet.resize(static_cast<std::size_t>(size));
  return packet;
}

void L2capConnection::send(const Bytes& packet) const {
  ssize_t sent = 0;
  do {
    sent = ::send(socket_.get(), packet.data(), packet.size(), MSG_NOSIGNAL);
  } while (sent < 0 && errno == EINTR);
  if (sent < 0) shutdown();  // lest the central wait for what has not been sent
}

void L2capConnection::shutdown() const { ::shutdown(socket_.get(), SHUT_RDWR); }

L2capListener::L2capListener(const BluetoothAddress& address)
    : address_(address),
      socket_(::socket(AF_BLUETOOTH, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, kL2capProtocol)) {
  L2capAddress local{};
  local.family = AF_BLUETOOTH;
  std::memcpy(local.address, address.bytes.data(), address.bytes.size());
  local.channel = htole16(kAttChannel);
  local.addressType = kPublicLeAddress;
  constexpr int waiting = 1;
  if (socket_.get() < 0 ||
      ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0 ||
      ::listen(socket_.get(), waiting) != 0) {
    fail(address);
  }
}

std::shared_ptr<L2capConnection> L2capListener::accept() const {
  L2capAddress remote{};
  socklen_t size = sizeof remote;
  internal::Descriptor connection(
      ::accept4(socket_.get(), reinterpret_cast<sockaddr*>(&remote), &size, SOCK_CLOEXEC));
  if (connection.get() < 0) {
    if (errno == EAGAIN || errno == EINTR || errno == ECONNABORTED) return nullptr;
    fail(address_);  // whoever waits here would be reported as ready without end
  }
  const timeval patience{kSendSeconds, 0};
  if (::setsockopt(connection.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof patience) != 0)
    fail(address_);
  L2capPeer peer{{}, remote.addressType};
  std::memcpy(peer.address.bytes.data(), remote.address, peer.address.bytes.size());
  return std::make_shared<L2capConnection>(std::move(connection), peer);
}

}  // namespace kwtsdk::sim
