#include "tools/session.h"

namespace kwtsdk::tool {
namespace {

Platform platformOf(const std::shared_ptr<Scheduler>& scheduler, const std::shared_ptr<Log>& log) {
  Platform platform;
  platform.scheduler = scheduler;
  platform.log = log;
  return platform;
}

}  // namespace

Session::Session(const Host& host)
    : scheduler_(host.scheduler),
      interrupt_(host.interrupt),
      log_(std::make_shared<ObservedLog>(systemLog())),
      link_(openSimulatedHostLink(scheduler_, host.simulatedFolder)),
      recorder_(KWTBluetoothHelper::create(platformOf(scheduler_, log_))) {
  link_->attach(recorder_);
}

Session::~Session() { recorder_->stopMonitorTimer(); }

}  // namespace kwtsdk::tool
