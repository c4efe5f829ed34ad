#include "platform/bluez/bus.h"

#include <chrono>
#include <utility>

namespace kwtsdk::bluez {

// What is listened to is fixed before anything is asked, so that nothing falls between an answer and what
// changes after it.
Bus::Bus(Scheduler& scheduler, Events events)
    : events_(std::move(events)),
      connection_(sdbus::createSystemBusConnection()),
      thread_(scheduler.serialQueue("kwt.bluez.bus")) {
  listen(*connection_, std::string("type='signal',sender='") + kBluezName + "'",
         [this](sdbus::Message& signal) { events_.onSignal(signal); });
  listen(*connection_,
         std::string("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
             kBluezName + "'",
         [this](sdbus::Message& signal) { onOwnerChanged(signal); });
  thread_->async([this] { run(); });
}

Bus::~Bus() {
  connection_->leaveEventLoop();
  thread_.reset();
}

void Bus::onOwnerChanged(sdbus::Message& signal) {
  std::string name, oldOwner;
  signal >> name >> oldOwner;
  if (!oldOwner.empty()) events_.onServiceEnd();  // else it has just been started, perhaps by a call
}

void Bus::run() noexcept {
  try {
    connection_->enterEventLoop();
  } catch (const std::exception&) {
    events_.onBusEnd();
  }
}

sdbus::IProxy& Bus::proxyAt(const std::string& path) {
  const internal::MutexLock lock(mutex_);
  auto& proxy = proxies_[path];
  if (!proxy) proxy = proxyOf(*connection_, kBluezName, path);
  return *proxy;
}

void Bus::call(const Method& method, const Arguments& arguments, Duration timeout, Answer onAnswer) {
  sdbus::IProxy& proxy = proxyAt(method.path);
  auto message = newCall(proxy, method.interface, method.name);
  arguments(message);
  send(proxy, message, std::chrono::duration_cast<std::chrono::microseconds>(timeout), std::move(onAnswer));
}

}  // namespace kwtsdk::bluez
