#include "platform/bluez/client.h"

#include <algorithm>
#include <new>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/bluez/message.h"

namespace kwtsdk::bluez {
namespace {

constexpr Duration kForever = std::chrono::hours(24 * 365);

Error lateError(Problem problem, Duration limit) {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(limit).count();
  return errorOf(problem, "BlueZ did not answer within " + std::to_string(seconds) + " s");
}

/// What came of a call, whose good answer `read` has taken.
MaybeError outcomeOf(sdbus::MethodReply& reply, const sdbus::Error* error, const Client::Read& read) {
  if (error != nullptr) return errorOf(*error);
  try {
    if (read) read(reply);
  } catch (const BluezError& unreadable) {
    return unreadable.error();
  }
  return std::nullopt;
}

}  // namespace

std::shared_ptr<Client> Client::open(const std::shared_ptr<Scheduler>& scheduler, Loop& loop,
                                     const std::string& device, Events events) {
  std::shared_ptr<Client> client(new Client(scheduler, loop, device, std::move(events)));
  loop.add(client);
  return client;
}

Client::Client(const std::shared_ptr<Scheduler>& scheduler, Loop& loop, const std::string& device,
               Events events)
    : scheduler_(scheduler),
      loop_(loop),
      events_(std::move(events)),
      woken_(scheduler->semaphore("kwt.bluez.wait")),
      device_(device),
      objects_(device),
      bus_(scheduler, [&loop] { loop.start(); },
           {[this](sd_bus_message* signal) { onSignal(signal); }, [this] { end("bluetoothd ended"); },
            [this] { end("the system bus ended"); }}) {}

void Client::prepare(Wait& wait) {
  bus_.prepare(wait);
  const internal::MutexLock lock(mutex_);
  for (const auto& [number, started] : started_) wait.due = std::min(wait.due, started.due);
}

void Client::handle(std::span<const pollfd> polled) {
  bus_.process(!polled.empty() && polled.front().revents != 0);
  endLate();
}

Client::Pending Client::askForObjects() {
  return ask({"/", kObjectManager, "GetManagedObjects"}, noArguments, [this](sdbus::MethodReply& reply) {
    Reader reader(reply);
    Objects loaded(device_);
    reader.each("{oa{sa{sv}}}", [&] {
      const std::string path(reader.path());
      loaded.add(path, reader);
    });
    const internal::MutexLock lock(mutex_);
    objects_ = std::move(loaded);
  });
}

Client::Pending Client::askFor(const std::string& path, const char* interface) {
  const auto ofInterface = [&](sd_bus_message* call) {
    expectGood(sd_bus_message_append(call, "s", interface));
  };
  return ask({path, kProperties, "GetAll"}, ofInterface, [this, path, interface](sdbus::MethodReply& reply) {
    Reader reader(reply);
    const internal::MutexLock lock(mutex_);
    objects_.set(path, interface, reader);
  });
}

// Whoever listens cannot do anything about a signal that is not what it should be; BlueZ's own are.
void Client::onSignal(sd_bus_message* signal) {
  try {
    const std::string_view member = sd_bus_message_get_member(signal);
    if (member == "PropertiesChanged") return readProperties(signal);
    if (member != "InterfacesAdded" && member != "InterfacesRemoved") return;
    Reader reader(signal);
    const std::string path(reader.path());
    {
      const internal::MutexLock lock(mutex_);
      if (!objects_.isWanted(path)) return;
      member == "InterfacesAdded" ? objects_.add(path, reader) : objects_.remove(path, reader);
    }
    changed();
  } catch (const BluezError&) {
  }
}

void Client::readProperties(sd_bus_message* signal) {
  const std::string path = sd_bus_message_get_path(signal);
  Reader reader(signal);
  const std::string interface(reader.text());
  {
    const internal::MutexLock lock(mutex_);
    if (!objects_.isWanted(path)) return;
    if (interface != kCharacteristic) {
      objects_.change(path, interface, reader);
      objects_.invalidate(path, interface, reader);
    }
  }
  interface == kCharacteristic ? readValue(reader, path) : changed();
}

void Client::readValue(Reader& reader, const std::string& path) const {
  reader.each("{sv}", [&] {
    const bool isValue = reader.text() == "Value";
    reader.variant([&](std::string_view type) {
      if (!isValue || type != "ay") return false;
      const auto bytes = reader.bytes();
      events_.onValue(path, {bytes.begin(), bytes.end()});
      return true;
    });
  });
}

void Client::end(const char* reason) {
  {
    const internal::MutexLock lock(mutex_);
    if (!gone_) gone_ = errorOf(Problem::connectionLost, reason);
    objects_.clear();
  }
  changed();
}

void Client::changed() {
  wake();
  events_.onChange();
}

void Client::wake() {
  {
    const internal::MutexLock lock(mutex_);
    if (!std::exchange(waiting_, false)) return;
  }
  woken_->signal();
}

bool Client::waitFor(const std::function<bool(const Objects&)>& condition, Duration timeout) {
  const Duration end = scheduler_->now() + std::min(timeout, kForever);
  while (true) {
    {
      const internal::MutexLock lock(mutex_);
      if (cancelled_) throw BluezError(Problem::cancelled);
      if (gone_) throw BluezError(*gone_);
      if (condition(objects_)) return true;
      waiting_ = true;
    }
    const Duration left = end - scheduler_->now();
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

void Client::call(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout,
                  Problem late) {
  await(ask(method, arguments), timeout, late);
}

Client::Pending Client::ask(const Bus::Method& method, const Bus::Arguments& arguments, const Read& read) {
  const auto answer = std::make_shared<Answer>();
  const auto take = [this, answer, read](sdbus::MethodReply& reply, const sdbus::Error* error) {
    const MaybeError outcome = outcomeOf(reply, error, read);
    {
      const internal::MutexLock lock(mutex_);
      *answer = {true, outcome};
    }
    wake();
  };
  send(method, arguments, take);
  return answer;
}

void Client::await(const Pending& answer, Duration timeout, Problem late) {
  if (!waitFor([&](const Objects&) { return answer->given; }, timeout))
    throw BluezError(late == Problem::busFailure ? lateError(late, timeout) : errorOf(late));
  if (answer->error) throw BluezError(*answer->error);
}

void Client::start(const Bus::Method& method, const Bus::Arguments& arguments, Duration timeout, Done onDone,
                   Read read) {
  std::uint64_t number = 0;
  {
    const internal::MutexLock lock(mutex_);
    number = ++lastNumber_;
    started_.emplace(number, Started{timeout, scheduler_->now() + timeout, std::move(onDone)});
  }
  const auto take = [this, number, read = std::move(read)](sdbus::MethodReply& reply,
                                                           const sdbus::Error* error) {
    finish(number, outcomeOf(reply, error, read));
  };
  try {
    send(method, arguments, take);
  } catch (const BluezError& failure) {
    loop_.post([self = shared_from_this(), number, error = failure.error()] { self->finish(number, error); });
  }
}

void Client::finish(std::uint64_t number, const MaybeError& error) {
  Done onDone;
  {
    const internal::MutexLock lock(mutex_);
    const auto found = started_.find(number);
    if (found == started_.end()) return;  // it was given up
    onDone = std::move(found->second.onDone);
    started_.erase(found);
  }
  onDone(error);
}

void Client::endLate() {
  std::vector<std::pair<std::uint64_t, Duration>> late;
  {
    const internal::MutexLock lock(mutex_);
    if (started_.empty()) return;
    const Duration now = scheduler_->now();
    for (const auto& [number, started] : started_) {
      if (started.due <= now) late.emplace_back(number, started.limit);
    }
  }
  for (const auto& [number, limit] : late) finish(number, lateError(Problem::connectionLost, limit));
}

void Client::send(const Bus::Method& method, const Bus::Arguments& arguments, Bus::Answer onAnswer) {
  try {
    bus_.call(method, arguments, std::move(onAnswer));
    if (!loop_.isCurrent() && bus_.hasUnsent()) loop_.wake();
  } catch (const sdbus::Error& failure) {
    throw BluezError(errorOf(failure));
  }
}

MaybeError Client::gone() const {
  const internal::MutexLock lock(mutex_);
  return gone_;
}

Discovery::Discovery(Client& client, std::string adapter) : client_(client), adapter_(std::move(adapter)) {
  const auto lowEnergy = [](sd_bus_message* call) {
    expectGood(sd_bus_message_append(call, "a{sv}", 1, "Transport", "s", "le"));
  };
  client_.call({adapter_, kAdapter, "SetDiscoveryFilter"}, lowEnergy, kPrompt, Problem::busFailure);
  client_.call({adapter_, kAdapter, "StartDiscovery"}, noArguments, kPrompt, Problem::busFailure);
}

Discovery::~Discovery() {
  try {
    client_.start({adapter_, kAdapter, "StopDiscovery"}, noArguments, kPrompt, [](const MaybeError&) {});
  } catch (const std::bad_alloc&) {
    return;
  }
}

}  // namespace kwtsdk::bluez
