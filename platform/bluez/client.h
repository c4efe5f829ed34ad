#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "platform/bluez/bluez_error.h"
#include "platform/bluez/bus.h"
#include "platform/bluez/objects.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// How long BlueZ may take for what needs no radio.
inline constexpr Duration kPrompt = std::chrono::seconds(5);

/// BlueZ as one connection to the system bus shows it: its objects, kept up to date, and calls to them. What
/// waits here is one thread at a time.
class Client {
 public:
  /// On the bus's thread: they must not wait for a thread that is in here, and must not throw.
  struct Events {
    std::function<void(const std::string& path, Bytes value)> onValue;  // of a characteristic
    std::function<void(const std::string& ended)> onChange;             // of objects, or gone()
  };

  /// Opens the bus. Throws BluezError.
  Client(Scheduler& scheduler, Events events);

  /// Waits for an event that is running on the bus's thread.
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Asks BlueZ for all its objects. Throws BluezError.
  void load();

  /// A look at the objects. Any thread.
  template <class Look>
  auto look(Look&& look) const {
    const internal::MutexLock lock(mutex_);
    return look(objects_);
  }

  /// Waits until the condition holds; looks at it after every change. False: it did not in time. Throws
  /// BluezError when it no longer can: cancelled, or what gone() says. The condition may throw.
  bool waitFor(const std::function<bool(const Objects&)>& condition, Duration timeout);

  /// Ends waits, also those that begin later. Any thread.
  void cancel();

  /// Lets waits begin again. Whether it was cancelled.
  bool resume();

  /// Calls and waits for the answer. Throws BluezError: the answer, or `late` when there is none in time.
  /// `read`, on the bus's thread, takes what was answered.
  void call(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout, Problem late,
            const std::function<void(sdbus::MethodReply&)>& read = nullptr);

  /// Calls; `onDone` comes on the bus's thread, or inside the call when it cannot be sent. Any thread.
  void start(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout,
             const std::function<void(const MaybeError&)>& onDone) noexcept;

  /// Why BlueZ cannot be reached any more. Any thread.
  MaybeError gone() const;

 private:
  void send(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout,
            Bus::Answer onAnswer);
  void onSignal(sdbus::Message& signal);
  void readProperties(sdbus::Message& signal);
  void end(const char* reason);
  void changed(const std::string& ended = {});
  void wake();

  Scheduler& scheduler_;
  const Events events_;
  const std::shared_ptr<Semaphore> woken_;
  mutable internal::Mutex mutex_;
  Objects objects_ KWT_GUARDED_BY(mutex_);
  MaybeError gone_ KWT_GUARDED_BY(mutex_);
  bool cancelled_ KWT_GUARDED_BY(mutex_) = false;
  bool waiting_ KWT_GUARDED_BY(mutex_) = false;
  std::unique_ptr<Bus> bus_;  // last, so that its thread ends first
};

/// Arguments of a call that has none.
inline void noArguments(sdbus::MethodCall&) {}

/// Lets an adapter listen for Low Energy devices, for the length of its life.
class Discovery {
 public:
  /// Throws BluezError.
  Discovery(Client& client, std::string adapter);

  /// Does not wait: BlueZ ends it together with the connection to the bus as well.
  ~Discovery();
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

 private:
  Client& client_;
  const std::string adapter_;
};

}  // namespace kwtsdk::bluez
