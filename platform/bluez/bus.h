#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "platform/bluez/sdbus.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

inline constexpr const char* kBluezName = "org.bluez";

/// A connection to the system bus with a thread of its own, and what it tells of BlueZ.
class Bus {
 public:
  /// All on the bus's thread; they must not wait for a thread that makes a call, and must not throw.
  struct Events {
    OnSignal onSignal;
    std::function<void()> onServiceEnd;  // bluetoothd ended, or another took its place
    std::function<void()> onBusEnd;
  };

  /// Throws sdbus::Error.
  Bus(Scheduler& scheduler, Events events);

  /// Waits for an event that is running. Calls without an answer get none.
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  struct Method {
    std::string path;
    const char* interface;
    const char* name;
  };
  using Arguments = std::function<void(sdbus::MethodCall& call)>;
  using Answer = OnReply;

  /// Sends a call to BlueZ and returns; the answer comes on the bus's thread, at the latest after `timeout`.
  /// Throws sdbus::Error when it cannot be sent. Any thread.
  void call(const Method& method, const Arguments& arguments, Duration timeout, Answer onAnswer);

 private:
  sdbus::IProxy& proxyAt(const std::string& path);
  void onOwnerChanged(sdbus::Message& signal);
  void run() noexcept;

  const Events events_;
  const std::unique_ptr<sdbus::IConnection> connection_;
  internal::Mutex mutex_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_ KWT_GUARDED_BY(mutex_);
  std::shared_ptr<SerialQueue> thread_;
};

}  // namespace kwtsdk::bluez
