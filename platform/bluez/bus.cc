#include "platform/bluez/bus.h"

#include <chrono>
#include <exception>
#include <mutex>
#include <new>
#include <utility>

#include "platform/bluez/bluez_error.h"
#include "platform/bluez/message.h"

namespace kwtsdk::bluez {
namespace {

/// How long a bus that works may take to let somebody in. The D-Bus library waits 90 s for one that hangs.
constexpr Duration kOpeningLimit = std::chrono::seconds(10);

/// What a thread of its own opens, which is left behind when it takes too long.
class Opening {
 public:
  using Connection = std::shared_ptr<sdbus::IConnection>;

  static Connection run(Scheduler& scheduler, const std::function<void()>& meanwhile) {
    const auto opening = std::make_shared<Opening>(scheduler);
    {
      // Also held here until it has taken the work, at whose end it may go.
      const auto thread = scheduler.serialQueue("kwt.bluez.open");
      thread->async([opening, thread] {
        try {
          opening->open();
        } catch (const std::bad_alloc&) {  // neither a connection nor what to say of it
        }
        opening->done_->signal();
      });
    }
    meanwhile();
    if (!opening->done_->wait(kOpeningLimit))
      throw BluezError(Problem::busFailure, "it did not answer within 10 s");
    const internal::MutexLock lock(opening->mutex_);
    if (opening->error_) throw BluezError(*opening->error_);
    if (!opening->connection_) throw std::bad_alloc();
    return std::exchange(opening->connection_, nullptr);
  }

  explicit Opening(Scheduler& scheduler) : done_(scheduler.semaphore("kwt.bluez.open")) {}

 private:
  void open() {
    Connection connection;
    MaybeError error;
    try {
      connection = sdbus::createSystemBusConnection();
    } catch (const sdbus::Error& failure) {
      error = openingErrorOf(failure);
    } catch (const std::exception& failure) {
      error = errorOf(Problem::busFailure, failure.what());
    }
    const internal::MutexLock lock(mutex_);
    connection_ = std::move(connection);
    error_ = std::move(error);
  }

  const std::shared_ptr<Semaphore> done_;
  internal::Mutex mutex_;
  Connection connection_ KWT_GUARDED_BY(mutex_);
  MaybeError error_ KWT_GUARDED_BY(mutex_);
};

}  // namespace

// What is listened to is sent ahead of everything that is asked, so that nothing falls between an answer and
// what changes after it.
Bus::Bus(const std::shared_ptr<Scheduler>& scheduler, const std::function<void()>& meanwhile, Events events)
    : events_(std::move(events)),
      exchanging_(scheduler->recursiveLock("kwt.bluez.bus")),
      connection_(Opening::run(*scheduler, meanwhile)) {
  auto unsent = newCall(proxyAt("/"), "org.freedesktop.DBus.Peer", "Ping");
  sd_bus* const bus = sd_bus_message_get_bus(rawOf(unsent));
  const std::string signals = "type='signal',sender=";
  listen<&Bus::onSignal>(bus, signals + "'" + kBluezName + "'");
  listen<&Bus::onOwnerChanged>(
      bus, signals + "'org.freedesktop.DBus',member='NameOwnerChanged',arg0='" + kBluezName + "'");
}

Bus::~Bus() = default;

/// Past sdbus-c++, which waits for the bus's answer to each. A bus that refuses ends the connection.
template <void (Bus::*take)(sd_bus_message*)>
void Bus::listen(sd_bus* bus, const std::string& match) {
  const auto pass = [](sd_bus_message* signal, void* its, sd_bus_error*) {
    auto& self = *static_cast<Bus*>(its);
    self.guard([&] { (self.*take)(signal); });
    return 0;
  };
  expectGood(sd_bus_add_match_async(bus, nullptr, match.c_str(), pass, nullptr, this));
}

/// What is thrown must not pass the D-Bus library.
template <class Work>
void Bus::guard(Work&& work) {
  try {
    work();
  } catch (...) {
    thrown_ = std::current_exception();
  }
}

void Bus::onOwnerChanged(sd_bus_message* signal) {
  Reader reader(signal);
  reader.text();                      // the name
  if (reader.text().empty()) return;  // it has just been started, perhaps by a call
  mayStart_ = false;
  events_.onServiceEnd();
}

void Bus::end() {
  if (!isEnded_.exchange(true)) events_.onBusEnd();
}

void Bus::prepare(Loop::Source::Wait& wait) {
  if (isEnded_) return;
  try {
    const auto data = connection_->getEventLoopPollData();
    wait.polled.push_back({data.fd, data.events, 0});
    if (isMore_) wait.due = Duration::min();
  } catch (const sdbus::Error&) {
    end();
  }
}

/// A part of it at a time: others wait for the thread too.
void Bus::process(bool isReady) {
  constexpr int most = 64;
  if (isEnded_ || (!isReady && !isMore_)) return;
  try {
    isMore_ = true;
    for (int i = 0; i < most && isMore_; ++i) {
      const std::unique_lock receiving(*exchanging_);
      isMore_ = processNext(*connection_);
      if (thrown_) std::rethrow_exception(std::exchange(thrown_, nullptr));
    }
  } catch (const std::bad_alloc&) {
    isEnded_ = true;  // the D-Bus library may have been left in the middle of something
    throw;
  } catch (const std::exception&) {
    end();
  }
}

sdbus::IProxy& Bus::proxyAt(const std::string& path) {
  const internal::MutexLock lock(mutex_);
  auto& proxy = proxies_[path];
  if (!proxy) proxy = proxyOf(*connection_, kBluezName, path);
  return *proxy;
}

void Bus::call(const Method& method, const Arguments& arguments, Answer onAnswer) {
  sdbus::IProxy& proxy = proxyAt(method.path);
  auto message = newCall(proxy, method.interface, method.name);
  arguments(rawOf(message));
  // Whoever stops bluetoothd wants it to stay so.
  if (!mayStart_) expectGood(sd_bus_message_set_auto_start(rawOf(message), 0));
  // sdbus-c++ 1 sends, and then enters into a table who takes the answer. An answer that is taken before
  // would leave its receiver there until the connection ends, and without memory for the table each thread
  // would wait for the other.
  const std::unique_lock sending(*exchanging_);
  send(proxy, message, [this, onAnswer = std::move(onAnswer)](auto& reply, const auto* error) {
    mayStart_ = false;
    guard([&] { onAnswer(reply, error); });
  });
}

bool Bus::hasUnsent() const {
  return !isEnded_ && (connection_->getEventLoopPollData().events & POLLOUT) != 0;
}

}  // namespace kwtsdk::bluez
