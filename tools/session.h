#pragma once

#include <memory>
#include <string>

#include <kwtsdk/bluetooth_helper.h>
#include <kwtsdk/scheduler.h>

#include "tools/host_link.h"
#include "tools/interrupt.h"
#include "tools/observed_log.h"

namespace kwtsdk::tool {

/// What a command runs on, and which recorder it is for.
struct Host {
  std::shared_ptr<Scheduler> scheduler;
  Interrupt& interrupt;
  std::string simulatedFolder;
  std::string device;  // Bluetooth address; used when there is no folder
};

/// A connected recorder, for the length of one command. A facade of its own each time: what an earlier
/// command left pending, such as a download's watchdog, cannot reach the next one.
class Session {
 public:
  /// Connects. Throws Failure, or std::runtime_error whose text says what to do.
  explicit Session(const Host& host);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  KWTBluetoothHelper& recorder() { return *recorder_; }
  Scheduler& scheduler() { return *scheduler_; }
  Interrupt& interrupt() { return interrupt_; }
  ObservedLog& log() { return *log_; }
  HostLink& link() { return *link_; }

  /// What Ctrl-C does as long as nobody sets another action.
  void endLinkOnInterrupt() { interrupt_.setAction(link_->interruptAction()); }

 private:
  const std::shared_ptr<Scheduler> scheduler_;
  Interrupt& interrupt_;
  const std::shared_ptr<ObservedLog> log_;
  const std::unique_ptr<HostLink> link_;
  const std::shared_ptr<KWTBluetoothHelper> recorder_;
};

}  // namespace kwtsdk::tool
