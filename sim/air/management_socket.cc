#include "sim/air/management_socket.h"

#include <sys/socket.h>
#include <sys/time.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "sim/byte_order.h"

namespace kwtsdk::sim {

namespace {

/// The kernel's sockaddr_hci.
struct HciAddress {
  sa_family_t family;
  std::uint16_t device;
  std::uint16_t channel;
};

constexpr int kHciProtocol = 1;
constexpr std::uint16_t kNoDevice = 0xFFFF, kControlChannel = 3;
constexpr std::size_t kHeadSize = 6, kLongestMessage = 1024;
constexpr time_t kAnswerSeconds = 10;

/// Of a command's answer: its command and status come before what it returns.
constexpr std::size_t kAnswerHead = 3;

constexpr const char* kBecomeRoot = "run it as root, or give it the capability CAP_NET_ADMIN";

/// Of a command.
enum Status : std::uint8_t {
  busy = 0x0A,
  notSupported = 0x0C,
  invalidIndex = 0x11,
  rfKilled = 0x12,
  permissionDenied = 0x14
};

std::string reason(std::uint8_t status) {
  switch (status) {
    case busy:
      return "it is busy; try again";
    case notSupported:
      return "it does not know Low Energy; use another one";
    case invalidIndex:
      return "it is no longer there; plug it in";
    case rfKilled:
      return "radio is switched off; switch it on, for example with rfkill unblock bluetooth";
    case permissionDenied:
      return std::string("permission denied; ").append(kBecomeRoot);
    default:
      return "status " + std::to_string(status) + "; see the kernel's messages with dmesg";
  }
}

[[noreturn]] void failOf(std::uint8_t status) {
  const std::string text = "The Bluetooth controller did not do as told: " + reason(status) + ".";
  if (status == busy) throw ControllerBusy(text);
  throw std::runtime_error(text);
}

[[noreturn]] void failOfSocket() {
  const std::string advice =
      errno == EPERM || errno == EACCES
          ? kBecomeRoot
          : "load the kernel's Bluetooth module (modprobe bluetooth) or use another machine";
  throw std::runtime_error(std::string("Bluetooth cannot be used (") + std::strerror(errno) + "): " + advice +
                           ".");
}

}  // namespace

ManagementSocket::ManagementSocket()
    : socket_(::socket(AF_BLUETOOTH, SOCK_RAW | SOCK_CLOEXEC, kHciProtocol)) {
  const HciAddress control{AF_BLUETOOTH, kNoDevice, kControlChannel};
  const timeval answer{kAnswerSeconds, 0};
  if (socket_.get() < 0 ||
      ::bind(socket_.get(), reinterpret_cast<const sockaddr*>(&control), sizeof control) != 0 ||
      ::setsockopt(socket_.get(), SOL_SOCKET, SO_RCVTIMEO, &answer, sizeof answer) != 0) {
    failOfSocket();
  }
}

Bytes ManagementSocket::command(Command command, std::uint16_t controller,
                                std::span<const std::uint8_t> parameters) {
  Bytes message(kHeadSize);
  putLittle16(message, 0, command);
  putLittle16(message, 2, controller);
  putLittle16(message, 4, static_cast<std::uint32_t>(parameters.size()));
  append(message, parameters);
  if (::send(socket_.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) failOfSocket();

  while (auto event = receive(0)) {
    const bool isAnswer = event->code == commandComplete || event->code == commandStatus;
    if (!isAnswer) {
      events_.push_back(std::move(*event));
    } else if (event->parameters.size() >= kAnswerHead && event->controller == controller &&
               little16(event->parameters, 0) == command) {
      if (const std::uint8_t status = event->parameters[2]) failOf(status);
      return {event->parameters.begin() + kAnswerHead, event->parameters.end()};
    }
  }
  throw std::runtime_error(
      "The Bluetooth controller does not answer: switch it off and on, or plug it in again.");
}

std::optional<ManagementSocket::Event> ManagementSocket::nextEvent() {
  if (events_.empty()) return receive(MSG_DONTWAIT);
  Event event = std::move(events_.front());
  events_.pop_front();
  return event;
}

std::optional<ManagementSocket::Event> ManagementSocket::receive(int flags) const {
  Bytes message(kLongestMessage);
  ssize_t size = 0;
  do {
    size = ::recv(socket_.get(), message.data(), message.size(), flags);
  } while (size < 0 && errno == EINTR);
  if (size < 0 && errno != EAGAIN) failOfSocket();
  if (size < static_cast<ssize_t>(kHeadSize)) return std::nullopt;
  return Event{
      little16(message, 0), little16(message, 2), {message.begin() + kHeadSize, message.begin() + size}};
}

}  // namespace kwtsdk::sim
