#pragma once

#include <sdbus-c++/sdbus-c++.h>

#include <functional>
#include <memory>
#include <vector>

#include <kwtsdk/scheduler.h>

#include "platform/threads/mutex.h"

namespace kwtsdk::testing {

/// A thread on which one bus connection is served, and whatever else is posted: nothing there needs a lock.
class EventLoop {
 public:
  /// `onBusEnd` is called on the thread when the connection served has failed; it is served no longer.
  EventLoop(Scheduler& scheduler, std::function<void()> onBusEnd);
  ~EventLoop();  // runs what was posted before
  EventLoop(const EventLoop&) = delete;
  EventLoop& operator=(const EventLoop&) = delete;

  void post(std::function<void()> work);  // any thread

  /// On the loop's thread. Null: none.
  void serve(sdbus::IConnection* connection) { connection_ = connection; }

 private:
  void run();
  std::vector<std::function<void()>> posted();
  void attempt(const std::function<void()>& use);  // of the connection
  void wait();

  const std::function<void()> onBusEnd_;
  const int wake_;
  sdbus::IConnection* connection_ = nullptr;
  bool ended_ = false;
  internal::Mutex mutex_;
  std::vector<std::function<void()>> posted_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<SerialQueue> thread_;  // last, so that it ends first
};

}  // namespace kwtsdk::testing
