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
  const internal::MutexLock lock(mutex_);
  posted_.push_back(std::move(work));
  ::eventfd_write(wake_, 1);
}

void EventLoop::run() {
  while (!ended_) {
    attempt([this] { wait(); });
    const auto works = posted();
    attempt([this] {  // what was there when the work was posted, such as the end of the bus, comes first
      while (connection_ != nullptr && connection_->processPendingRequest()) {
      }
    });
    for (const auto& work : works) work();
  }
}

void EventLoop::attempt(const std::function<void()>& use) {
  try {
    use();
  } catch (const sdbus::Error&) {
    connection_ = nullptr;
    onBusEnd_();
  }
}

std::vector<std::function<void()>> EventLoop::posted() {
  ::eventfd_t count = 0;
  ::eventfd_read(wake_, &count);
  const internal::MutexLock lock(mutex_);
  return std::exchange(posted_, {});
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
