#include "tools/recorder_queries.h"

namespace kwtsdk::tool {

bool isConnected(Session& session) {
  const auto peripheral = session.recorder().connectedPeripheral();
  return peripheral && peripheral->state() == PeripheralState::connected;
}

Failure noAnswer(Session& session, Duration waited) {
  if (!isConnected(session)) {
    return {ToolError::connectionLost, "The connection to the recorder was lost.",
            "Bring the recorder into range, then run the command again."};
  }
  if (const MaybeError error = session.link().writeError()) return explained(*error);
  return {ToolError::noAnswer,
          "The recorder did not answer within " + std::to_string(waited / std::chrono::seconds(1)) + " s.",
          "Check that it is switched on and in range, then run the command again."};
}

void pause(Session& session) { session.scheduler().sleep(std::chrono::milliseconds(3)); }

std::int64_t batteryLevel(Session& session) {
  const std::int64_t level = session.recorder().getPower();
  // 0 is also what a query has that was never sent.
  const bool isSent = isConnected(session) && !session.link().writeError();
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
