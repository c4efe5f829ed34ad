#pragma once

#include <systemd/sd-bus.h>

#include <atomic>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include <kwtsdk/scheduler.h>

#include "platform/bluez/loop.h"
#include "platform/bluez/sdbus.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

inline constexpr const char* kBluezName = "org.bluez";

/// A connection to the system bus, and what it tells of BlueZ.
class Bus {
 public:
  /// All on the loop's thread; they must not throw anything but std::bad_alloc.
  struct Events {
    std::function<void(sd_bus_message* signal)> onSignal;
    std::function<void()> onServiceEnd;  // bluetoothd ended, or another took its place
    std::function<void()> onBusEnd;
  };

  /// Throws BluezError; also when the bus does not answer in time. `meanwhile` is done while it is opened.
  Bus(const std::shared_ptr<Scheduler>& scheduler, const std::function<void()>& meanwhile, Events events);

  /// Calls without an answer get none. Not while process() runs.
  ~Bus();
  Bus(const Bus&) = delete;
  Bus& operator=(const Bus&) = delete;

  struct Method {
    std::string path;
    const char* interface;
    const char* name;
  };
  using Arguments = std::function<void(sd_bus_message* call)>;
  using Answer = OnReply;

  /// Sends a call to BlueZ and returns; the answer, if any, comes on the loop's thread. Until one has come,
  /// or BlueZ has ended, the bus starts BlueZ for it. Throws sdbus::Error or BluezError when it cannot be
  /// sent. Any thread.
  void call(const Method& method, const Arguments& arguments, Answer onAnswer);

  /// Whether something is left to send, for which the loop has to wait. Any thread.
  bool hasUnsent() const;

  // ---- The loop's thread ----

  void prepare(Loop::Source::Wait& wait);

  /// Throws std::bad_alloc, also that of an event or of an answer's receiver.
  void process(bool isReady);

 private:
  using Connection = std::shared_ptr<sdbus::IConnection>;

  template <void (Bus::*take)(sd_bus_message*)>
  void listen(sd_bus* bus, const std::string& match);
  void onSignal(sd_bus_message* signal) { events_.onSignal(signal); }
  void onOwnerChanged(sd_bus_message* signal);
  template <class Work>
  void guard(Work&& work);
  void end();
  sdbus::IProxy& proxyAt(const std::string& path);

  const Events events_;
  const std::shared_ptr<RecursiveLock> exchanging_;  // sending a call, taking what came
  const Connection connection_;
  std::exception_ptr thrown_;  // by what the D-Bus library called
  bool isMore_ = true;  // may have come already, with the answers to what was asked while it was opened
  std::atomic<bool> isEnded_ = false, mayStart_ = true;
  internal::Mutex mutex_;
  std::map<std::string, std::unique_ptr<sdbus::IProxy>> proxies_ KWT_GUARDED_BY(mutex_);
};

}  // namespace kwtsdk::bluez
