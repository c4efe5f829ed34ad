#include "platform/bluez/notifications.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>

namespace kwtsdk::bluez {
namespace {

/// Both an empty value and the end are read as nothing.
bool isHungUp(int descriptor) {
  pollfd polled{descriptor, POLLIN, 0};
  return ::poll(&polled, 1, 0) > 0 && (polled.revents & (POLLHUP | POLLERR | POLLNVAL)) != 0;
}

}  // namespace

void Notifications::add(Target target, internal::Descriptor descriptor) {
  streams_.push_back({std::move(target), std::move(descriptor)});
}

void Notifications::hold() {
  receiveAll();
  isHolding_ = false;
  tell(waiting_.size());
  isHolding_ = true;
}

void Notifications::release() {
  isHolding_ = false;
  tell(waiting_.size());
}

void Notifications::fail() {
  receiveAll();
  release();
}

void Notifications::drop(const Target& target) {
  receiveAll();
  std::erase_if(waiting_, [&](const auto& value) { return value.first == target; });
}

void Notifications::finish() {
  receiveAll();
  if (!isHolding_) tell(waiting_.size());
}

void Notifications::end() {
  streams_.clear();
  waiting_.clear();
  isHolding_ = false;
}

void Notifications::prepare(Wait& wait) {
  for (const Stream& stream : streams_) wait.polled.push_back({stream.descriptor.get(), POLLIN, 0});
  if (!isHolding_ && !waiting_.empty()) wait.due = Duration::min();
}

void Notifications::handle(std::span<const pollfd> polled) {
  constexpr std::size_t most = 64;  // what comes over the bus waits too
  if (std::ranges::any_of(polled, [](const pollfd& each) { return each.revents != 0; })) receiveAll();
  tell(most);
}

/// BlueZ drops what a descriptor has no room for: so it is emptied before, and while, hosts are told.
void Notifications::tell(std::size_t most) {
  constexpr std::size_t mostHeld = 1024, often = 32;
  for (std::size_t told = 0; told < most && !waiting_.empty(); ++told) {
    // Of so many none is still ahead of its acknowledgement: that does not come.
    if (isHolding_ && waiting_.size() <= mostHeld) return;
    auto [target, value] = std::move(waiting_.front());
    waiting_.pop_front();
    events_.onValue(target, std::move(value));
    if (told % often == often - 1) receiveAll();
  }
}

void Notifications::receiveAll() {
  for (std::size_t i = 0; i < streams_.size(); ++i) {
    while (i < streams_.size() && receive(streams_[i])) {
    }
  }
}

/// False: there is nothing more for now.
bool Notifications::receive(Stream& stream) {
  constexpr std::size_t longest = 514;  // BlueZ's largest ATT MTU, 517, less 3
  constexpr std::size_t mostWaiting = 1U << 16U;
  std::array<std::uint8_t, longest> value;
  const int descriptor = stream.descriptor.get();
  if (descriptor < 0 || waiting_.size() >= mostWaiting) return false;
  const ssize_t size = ::recv(descriptor, value.data(), value.size(), MSG_DONTWAIT);
  if (size < 0 && (errno == EAGAIN || errno == EINTR)) return false;
  if (size < 0 || (size == 0 && isHungUp(descriptor))) {
    stream.descriptor = internal::Descriptor();
    events_.onEnd();
    return false;
  }
  waiting_.emplace_back(stream.target, Bytes(value.begin(), value.begin() + size));
  return true;
}

}  // namespace kwtsdk::bluez
