#include "tools/session.h"

#include <stdlib.h>

#include <filesystem>

namespace kwtsdk::tool {
namespace {

/// None: the library's own. Kept apart from it, since what a host keeps is not kwt's.
std::shared_ptr<Settings> settingsOfUser() {
  const auto in = [](const char* variable) -> std::filesystem::path {
    const char* const value = ::getenv(variable);
    return value == nullptr ? "" : value;
  };
  if (in("XDG_STATE_HOME").is_absolute()) return fileSettings(in("XDG_STATE_HOME") / "kwt" / "settings");
  if (in("HOME").is_absolute()) return fileSettings(in("HOME") / ".local" / "state" / "kwt" / "settings");
  return nullptr;
}

Platform platformOf(const std::shared_ptr<Scheduler>& scheduler, const std::shared_ptr<Log>& log) {
  Platform platform;
  platform.scheduler = scheduler;
  platform.settings = settingsOfUser();
  platform.log = log;
  return platform;
}

std::unique_ptr<HostLink> openHostLink(const Host& host) {
  if (!host.simulatedFolder.empty()) return openSimulatedHostLink(host.scheduler, host.simulatedFolder);
  return openBluetoothHostLink(host.scheduler, host.interrupt, host.device);
}

}  // namespace

Session::Session(const Host& host)
    : scheduler_(host.scheduler),
      interrupt_(host.interrupt),
      log_(std::make_shared<ObservedLog>(systemLog())),
      link_(openHostLink(host)),
      recorder_(KWTBluetoothHelper::create(platformOf(scheduler_, log_))) {
  link_->attach(recorder_);
  endLinkOnInterrupt();
}

Session::~Session() {
  interrupt_.setAction(nullptr);
  recorder_->stopMonitorTimer();
}

}  // namespace kwtsdk::tool
