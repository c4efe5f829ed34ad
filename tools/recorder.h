#pragma once

#include <chrono>
#include <memory>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include <kwtsdk/scheduler.h>
#include <kwtsdk/session/session.h>

#include "tools/failure.h"
#include "tools/terminal.h"
#include "tools/traffic.h"

namespace kwtsdk::tool {

/// What a command runs on, and which recorder it is for.
struct Environment {
  std::shared_ptr<Scheduler> scheduler;
  std::stop_token stop;  // Ctrl-C
  std::string simulatedFolder;
  std::string device;     // Bluetooth address or name; used when there is no folder. Empty: the usual one
  std::string adapter{};  // such as "hci0"; empty: the first that has power
  bool verbose = false;
  std::vector<std::shared_ptr<TrafficObserver>> observers{};  // of every link
};

/// A recorder for the length of one command, which contacts it. Throws std::runtime_error whose text says
/// what to do.
std::shared_ptr<session::Session> openRecorder(const Environment& environment);

/// For what is asked and answered at once; what is not is told, and not tried again.
session::Limits limitsOfQuery(const Environment& environment);

/// Throws a Failure also when there is none.
session::RecordingInfo firstRecording(const Environment& environment, session::Session& recorder);

/// Its value; throws the Failure that it ended with.
template <class T>
T valueOf(session::Result<T> result) {
  if (!result) throw explained(result.error());
  return std::move(result).value();
}

/// Its end, which someone at a terminal sees come nearer.
template <class T>
session::Result<T> watched(const Environment& environment, session::Operation<T> operation) {
  const auto line = std::make_shared<ProgressLine>(*environment.scheduler);
  operation.onProgress([line](const session::ProgressReport& report) { line->show(report); });
  auto result = operation.wait();
  line->end(operation.progress());
  return result;
}

}  // namespace kwtsdk::tool
