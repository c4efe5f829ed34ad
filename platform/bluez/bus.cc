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
  connection_->addMatch(
      std::string("type='signal',sender='") + kBluezName + "'",
      [this](sdbus::Message& signal) { events_.onSignal(signal); }, sdbus::floating_slot);
  connection_->addMatch(
      std::string("type='signal',sender='org.freedesktop.DBus',member='NameOwnerChanged',arg0='") +
          kBluezName + "'",
      [this](sdbus::Message& signal) { onOwnerChanged(signal); }, sdbus::floating_slot);
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

sdbus::IProxy& Bus::proxyOf(const std::string& path) {
  const internal::MutexLock lock(mutex_);
  auto& proxy = proxies_[path];
  if (!proxy) proxy = sdbus::createProxy(*connection_, kBluezName, path);
  return *proxy;
}

void Bus::call(const Method& method, const Arguments& arguments, Duration timeout, Answer onAnswer) {
  sdbus::IProxy& proxy = proxyOf(method.path);
  auto message = proxy.createMethodCall(method.interface, method.name);
  arguments(message);
  const auto limit = std::chrono::duration_cast<std::chrono::microseconds>(timeout).count();
  proxy.callMethod(message, std::move(onAnswer), static_cast<std::uint64_t>(limit));
}

}  // namespace kwtsdk::bluez
