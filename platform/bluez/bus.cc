#include "platform/bluez/bus.h"

#include <chrono>
#include <exception>
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

  static Connection run(Scheduler& scheduler, std::function<void(sdbus::IConnection&)> listen) {
    const auto opening = std::make_shared<Opening>(scheduler);
    {
      // Also held here until it has taken the work, at whose end it may go.
      const auto thread = scheduler.serialQueue("kwt.bluez.open");
      thread->async([opening, listen = std::move(listen), thread] {
        opening->open(listen);
        opening->done_->signal();
      });
    }
    if (!opening->done_->wait(kOpeningLimit))
      throw BluezError(Problem::busFailure, "it did not answer within 10 s");
    const internal::MutexLock lock(opening->mutex_);
    if (opening->error_) throw BluezError(*opening->error_);
    return std::exchange(opening->connection_, nullptr);
  }

  explicit Opening(Scheduler& scheduler) : done_(scheduler.semaphore("kwt.bluez.open")) {}

 private:
  void open(const std::function<void(sdbus::IConnection&)>& listen) {
    Connection connection;
    MaybeError error;
    try {
      connection = sdbus::createSystemBusConnection();
      listen(*connection);
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

Bus::Bus(const std::shared_ptr<Scheduler>& scheduler, Events events)
    : events_(std::move(events)),
      connection_(
          Opening::run(*scheduler, [this](sdbus::IConnection& connection) { listenOn(connection); })) {}

Bus::~Bus() = default;

// What is listened to is fixed before anything is asked, so that nothing falls between an answer and what
// changes after it.
void Bus::listenOn(sdbus::IConnection& connection) {
  listen(connection, std::string("type='signal',sender='") + kBluezName + "'",
         [this](sdbus::Message& signal) { events_.onSignal(signal); });
  listen(connection,
         std::string("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
             kBluezName + "'",
         [this](sdbus::Message& signal) { onOwnerChanged(signal); });
}

void Bus::onOwnerChanged(sdbus::Message& signal) {
  std::string name, oldOwner;
  signal >> name >> oldOwner;
  if (!oldOwner.empty()) events_.onServiceEnd();  // else it has just been started, perhaps by a call
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
  } catch (const std::exception&) {  // the bus's, or no memory: what came cannot be told from what did not
    end();
  }
}

/// A part of it at a time: others wait for the thread too.
void Bus::process(bool isReady) {
  constexpr int most = 64;
  if (isEnded_ || (!isReady && !isMore_)) return;
  try {
    isMore_ = true;
    for (int i = 0; i < most && isMore_; ++i) isMore_ = processNext(*connection_);
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
  send(proxy, message, std::move(onAnswer));
}

bool Bus::hasUnsent() const {
  return !isEnded_ && (connection_->getEventLoopPollData().events & POLLOUT) != 0;
}

}  // namespace kwtsdk::bluez
