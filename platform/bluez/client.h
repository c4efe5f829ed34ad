#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include <kwtsdk/bytes.h>
#include <kwtsdk/error.h>
#include <kwtsdk/scheduler.h>

#include "platform/bluez/bluez_error.h"
#include "platform/bluez/bus.h"
#include "platform/bluez/loop.h"
#include "platform/bluez/objects.h"
#include "platform/threads/mutex.h"

namespace kwtsdk::bluez {

/// How long BlueZ may take for what needs no radio.
inline constexpr Duration kPrompt = std::chrono::seconds(5);

/// BlueZ as one connection to the system bus shows it: its objects, kept up to date, and calls to them. What
/// waits here is one thread at a time, and not the loop's.
class Client : public Loop::Source, public std::enable_shared_from_this<Client> {
 public:
  /// On the loop's thread: they must not throw anything but std::bad_alloc, after which onChange comes again.
  struct Events {
    std::function<void(const std::string& path, Bytes value)> onValue;  // of a characteristic
    std::function<void()> onChange;                                     // of objects, or gone()
  };

  /// Opens the bus and starts the loop; `device` is the only one whose objects are looked at, empty: all.
  /// Throws BluezError, or what Loop::start() throws.
  static std::shared_ptr<Client> open(const std::shared_ptr<Scheduler>& scheduler, Loop& loop,
                                      const std::string& device, Events events);

  /// The answer to come of what was asked, for await() alone to read.
  struct Answer {
    bool given = false;
    MaybeError error;
  };
  using Pending = std::shared_ptr<const Answer>;

  /// Asks BlueZ for its objects, or for the properties of one, which look() sees then. Throws BluezError when
  /// that cannot be sent.
  Pending askForObjects();
  Pending askFor(const std::string& path, const char* interface);

  /// Waits for the answer. Throws BluezError: the answer, or `late` when there is none in time.
  void await(const Pending& answer, Duration timeout = kPrompt, Problem late = Problem::busFailure);

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

  /// Calls. `read`, on the loop's thread, takes what was answered. Throws BluezError when it cannot be sent.
  using Read = std::function<void(sdbus::MethodReply&)>;
  Pending ask(const Bus::Method& method, const Bus::Arguments& arguments, const Read& read = nullptr);

  /// The same, and waits for the answer as await() does.
  void call(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout, Problem late);

  /// Calls; `onDone` comes on the loop's thread, never inside the call, at the latest after `timeout`; before
  /// a good one `read` has taken what was answered. Any thread. Throws std::bad_alloc; on the loop's thread
  /// the client ends then.
  using Done = std::function<void(const MaybeError&)>;
  void start(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout, Done onDone,
             Read read = nullptr);

  /// Why BlueZ cannot be reached any more. Any thread.
  MaybeError gone() const;

  void prepare(Wait& wait) override;
  void handle(std::span<const pollfd> polled) override;
  void starved() override { end(kNoMemory); }

 private:
  struct Started {
    Duration limit, due;
    Done onDone;
  };

  Client(const std::shared_ptr<Scheduler>& scheduler, Loop& loop, const std::string& device, Events events);

  void send(const Bus::Method& method, const Bus::Arguments& arguments, Bus::Answer onAnswer);
  void finish(std::uint64_t number, const MaybeError& error);
  void endLate();
  void onSignal(sd_bus_message* signal);
  void readProperties(sd_bus_message* signal);
  void readValue(Reader& reader, const std::string& path) const;
  void end(const char* reason);
  void changed();
  void wake();

  const std::shared_ptr<Scheduler> scheduler_;
  Loop& loop_;
  const Events events_;
  const std::shared_ptr<Semaphore> woken_;
  const std::string device_;
  mutable internal::Mutex mutex_;
  Objects objects_ KWT_GUARDED_BY(mutex_);
  MaybeError gone_ KWT_GUARDED_BY(mutex_);
  bool cancelled_ KWT_GUARDED_BY(mutex_) = false;
  bool waiting_ KWT_GUARDED_BY(mutex_) = false;
  std::uint64_t lastNumber_ KWT_GUARDED_BY(mutex_) = 0;
  std::map<std::uint64_t, Started> started_ KWT_GUARDED_BY(mutex_);  // without an answer
  Bus bus_;                                                          // last, so that its answers end first
};

/// Arguments of a call that has none.
inline void noArguments(sd_bus_message*) {}

/// Lets an adapter listen for Low Energy devices, for the length of its life.
class Discovery {
 public:
  /// Throws BluezError.
  Discovery(Client& client, std::string adapter);

  /// Does not wait: BlueZ ends it together with the connection to the bus as well, as when there is no memory
  /// to say so.
  ~Discovery();
  Discovery(const Discovery&) = delete;
  Discovery& operator=(const Discovery&) = delete;

 private:
  Client& client_;
  const std::string adapter_;
};

}  // namespace kwtsdk::bluez
