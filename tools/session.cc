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

std::unique_ptr<RecorderConnection> connect(const Environment& environment) {
  if (!environment.simulatedFolder.empty())
    return connectSimulated(environment.scheduler, environment.simulatedFolder);
  return connectOverBluetooth(environment.scheduler, environment.interrupt, environment.device);
}

}  // namespace

void ObservedLog::write(LogLevel level, std::string_view line) {
  next_->write(level, line);
  if (level == LogLevel::debug) return;  // once per packet
  if (const auto observer = observer_.get()) observer(line);
}

Session::Session(const Environment& environment)
    : scheduler_(environment.scheduler),
      interrupt_(environment.interrupt),
      log_(std::make_shared<ObservedLog>(systemLog())),
      connection_(connect(environment)),
      recorder_(KWTBluetoothHelper::create(platformOf(scheduler_, log_))) {
  connection_->attach(recorder_);
  disconnectOnInterrupt();
}

Session::~Session() {
  interrupt_.setAction(nullptr);
  recorder_->stopMonitorTimer();
}

bool isConnected(Session& session) {
  const auto peripheral = session.recorder().connectedPeripheral();
  return peripheral && peripheral->state() == PeripheralState::connected;
}

Failure noAnswer(Session& session, Duration waited) {
  if (!isConnected(session)) {
    return {ToolError::connectionLost, "The connection to the recorder was lost.",
            "Bring the recorder into range, then run the command again."};
  }
  if (const MaybeError error = session.connection().writeError()) return explained(*error);
  return {ToolError::noAnswer,
          "The recorder did not answer within " + std::to_string(waited / std::chrono::seconds(1)) + " s.",
          "Check that it is switched on and in range, then run the command again."};
}

void pause(Session& session) { session.scheduler().sleep(std::chrono::milliseconds(3)); }

std::int64_t batteryLevel(Session& session) {
  const std::int64_t level = session.recorder().getPower();
  // 0 is also what a query has that was never sent.
  const bool isSent = isConnected(session) && !session.connection().writeError();
  if (level < 0 || (level == 0 && !isSent)) throw noAnswer(session);
  return level;
}

std::string firmwareVersion(Session& session) {
  const auto version = session.recorder().getFirmwareVersion();
  if (!version || version->empty()) throw noAnswer(session);
  return *version;
}

FlashInfo storeInfo(Session& session) {
  batteryLevel(session);
  pause(session);
  const auto info = session.recorder().getFileNumAndFirstId();
  if (!info) throw noAnswer(session);
  return *info;
}

FirstRecording firstRecording(Session& session) {
  const FlashInfo info = storeInfo(session);
  if (info.Num == 0) {
    throw Failure(ToolError::storeEmpty, "The recorder holds no recordings.",
                  "Make one, then run the command again.");
  }
  const auto id = static_cast<std::int64_t>(info.FirstID);
  pause(session);
  const auto header = session.recorder().getFileInfo(id);
  if (!header) throw noAnswer(session);
  return {id, *header};
}

}  // namespace kwtsdk::tool
