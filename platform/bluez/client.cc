#include "platform/bluez/client.h"

#include <algorithm>
#include <map>
#include <utility>

namespace kwtsdk::bluez {
namespace {

constexpr Duration kForever = std::chrono::hours(24 * 365);

std::unique_ptr<Bus> opened(Scheduler& scheduler, Bus::Events events) {
  try {
    return std::make_unique<Bus>(scheduler, std::move(events));
  } catch (const sdbus::Error& failure) {
    throw BluezError(openingErrorOf(failure));
  }
}

}  // namespace

Client::Client(Scheduler& scheduler, Events events)
    : scheduler_(scheduler),
      events_(std::move(events)),
      woken_(scheduler.semaphore("kwt.bluez.wait")),
      bus_(opened(scheduler,
                  {[this](sdbus::Message& signal) { onSignal(signal); }, [this] { end("bluetoothd ended"); },
                   [this] { end("the system bus ended"); }})) {}

Client::~Client() = default;

void Client::load() {
  call({"/", kObjectManager, "GetManagedObjects"}, noArguments, kPrompt, Problem::busFailure,
       [this](sdbus::MethodReply& reply) {
         std::map<sdbus::ObjectPath, Objects::Added> all;
         reply >> all;
         const internal::MutexLock lock(mutex_);
         objects_.replaceBy(all);
       });
}

// Whoever listens cannot do anything about a signal that is not what it should be; BlueZ's own are.
void Client::onSignal(sdbus::Message& signal) {
  try {
    const std::string member = signal.getMemberName();
    if (member == "PropertiesChanged") return readProperties(signal);
    if (member != "InterfacesAdded" && member != "InterfacesRemoved") return;
    sdbus::ObjectPath path;
    signal >> path;
    if (member == "InterfacesAdded") {
      Objects::Added interfaces;
      signal >> interfaces;
      const internal::MutexLock lock(mutex_);
      objects_.add(path, interfaces);
    } else {
      std::vector<std::string> interfaces;
      signal >> interfaces;
      const internal::MutexLock lock(mutex_);
      objects_.remove(path, interfaces);
    }
    changed();
  } catch (const sdbus::Error&) {
  }
}

void Client::readProperties(sdbus::Message& signal) {
  std::string interface;
  std::map<std::string, sdbus::Variant> values;
  std::vector<std::string> invalidated;
  signal >> interface >> values >> invalidated;
  const std::string path = signal.getPath();
  if (interface == kCharacteristic) {
    const auto value = values.find("Value");
    if (value != values.end()) events_.onValue(path, value->second.get<Bytes>());
  }
  {
    const internal::MutexLock lock(mutex_);
    objects_.change(path, interface, values, invalidated);
  }
  const auto connected = values.find("Connected");
  const bool ended = interface == kDevice && connected != values.end() && !connected->second.get<bool>();
  if (interface != kCharacteristic) changed(ended ? path : "");
}

void Client::end(const char* reason) {
  {
    const internal::MutexLock lock(mutex_);
    if (!gone_) gone_ = errorOf(Problem::connectionLost, reason);
    objects_.clear();
  }
  changed();
}

void Client::changed(const std::string& ended) {
  wake();
  events_.onChange(ended);
}

void Client::wake() {
  {
    const internal::MutexLock lock(mutex_);
    if (!std::exchange(waiting_, false)) return;
  }
  woken_->signal();
}

bool Client::waitFor(const std::function<bool(const Objects&)>& condition, Duration timeout) {
  const Duration end = scheduler_.now() + std::min(timeout, kForever);
  while (true) {
    {
      const internal::MutexLock lock(mutex_);
      if (cancelled_) throw BluezError(Problem::cancelled);
      if (gone_) throw BluezError(*gone_);
      if (condition(objects_)) return true;
      waiting_ = true;
    }
    const Duration left = end - scheduler_.now();
    if (left <= Duration::zero() || !woken_->wait(left)) return false;
  }
}

void Client::cancel() {
  {
    const internal::MutexLock lock(mutex_);
    cancelled_ = true;
  }
  wake();
}

bool Client::resume() {
  const internal::MutexLock lock(mutex_);
  return std::exchange(cancelled_, false);
}

void Client::call(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout, Problem late,
                  const std::function<void(sdbus::MethodReply&)>& read) {
  struct Answer {
    bool given = false;
    MaybeError error;
  };
  const auto answer = std::make_shared<Answer>();
  // The bus's own limit comes later: who waits here has to be the first, to say what was late.
  send(method, arguments, std::min(timeout, kForever) + kPrompt,
       [this, answer, read](sdbus::MethodReply& reply, const sdbus::Error* error) {
         MaybeError outcome = error == nullptr ? MaybeError() : errorOf(*error);
         try {
           if (!outcome && read) read(reply);
         } catch (const sdbus::Error& unreadable) {
           outcome = errorOf(Problem::busFailure, unreadable.what());
         }
         {
           const internal::MutexLock lock(mutex_);
           *answer = {true, outcome};
         }
         wake();
       });
  if (!waitFor([&](const Objects&) { return answer->given; }, timeout)) throw BluezError(late);
  if (answer->error) throw BluezError(*answer->error);
}

void Client::start(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout,
                   const std::function<void(const MaybeError&)>& onDone) noexcept {
  try {
    send(method, arguments, timeout, [onDone](sdbus::MethodReply&, const sdbus::Error* error) {
      onDone(error == nullptr ? MaybeError() : errorOf(*error));
    });
  } catch (const BluezError& failure) {
    onDone(failure.error());
  }
}

void Client::send(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout,
                  Bus::Answer onAnswer) {
  try {
    bus_->call(method, arguments, timeout, std::move(onAnswer));
  } catch (const sdbus::Error& failure) {
    throw BluezError(errorOf(failure));
  }
}

MaybeError Client::gone() const {
  const internal::MutexLock lock(mutex_);
  return gone_;
}

Discovery::Discovery(Client& client, std::string adapter) : client_(client), adapter_(std::move(adapter)) {
  const auto lowEnergy = [](sdbus::MethodCall& call) {
    call << std::map<std::string, sdbus::Variant>{{"Transport", sdbus::Variant(std::string("le"))}};
  };
  client_.call({adapter_, kAdapter, "SetDiscoveryFilter"}, lowEnergy, kPrompt, Problem::busFailure);
  client_.call({adapter_, kAdapter, "StartDiscovery"}, noArguments, kPrompt, Problem::busFailure);
}

Discovery::~Discovery() {
  client_.start({adapter_, kAdapter, "StopDiscovery"}, noArguments, kPrompt, [](const MaybeError&) {});
}

}  // namespace kwtsdk::bluez
