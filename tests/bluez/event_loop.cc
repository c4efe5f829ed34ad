#include "tests/bluez/event_loop.h"

#include <array>
#include <utility>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace kwtsdk::testing {

EventLoop::EventLoop(Scheduler& scheduler, std::function<void()> onBusEnd)
    : onBusEnd_(std::move(onBusEnd)),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      thread_(scheduler.serialQueue("event loop")) {
  thread_->async([this] { run(); });
}

EventLoop::~EventLoop() {
  post([this] { ended_ = true; });
  thread_.reset();
  ::close(wake_);
}

void EventLoop::post(std::function<void()> work) {
  const std::lock_guard lock(mutex_);
  posted_.push_back(std::move(work));
  ::eventfd_write(wake_, 1);
}

void EventLoop::run() {
  do {
    try {
      while (connection_ != nullptr && connection_->processPendingRequest()) {
      }
      wait();
    } catch (const sdbus::Error&) {
      connection_ = nullptr;
      onBusEnd_();
    }
  } while (runPosted());
}

bool EventLoop::runPosted() {
  ::eventfd_t count = 0;
  ::eventfd_read(wake_, &count);
  std::unique_lock lock(mutex_);
  const auto works = std::exchange(posted_, {});
  lock.unlock();
  for (const auto& work : works) work();
  return !ended_;
}

void EventLoop::wait() {
  std::array<pollfd, 2> polled{{{wake_, POLLIN, 0}, {-1, 0, 0}}};
  int limit = -1;
  if (connection_ != nullptr) {
    const auto data = connection_->getEventLoopPollData();
    polled[1] = {data.fd, data.events, 0};
    limit = data.getPollTimeout();
  }
  ::poll(polled.data(), polled.size(), limit);
}

}  // namespace kwtsdk::testing
