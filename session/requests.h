#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include <kwtsdk/bytes.h>

namespace kwtsdk::session::detail {

/// What is written, where, and how its answer is known among what else is notified.
struct Request {
  using IsAnswer = std::function<bool(const Bytes&)>;

  Bytes frame;
  std::string write, answersOn;  // UUIDs
  IsAnswer isAnswer;             // empty: the acknowledgement is all
};

Request batteryRequest();
Request versionRequest();
Request storageRequest();

Request countRequest();
Request infoRequest(std::uint32_t id);
Request downloadRequest(std::uint32_t id, std::uint64_t offset);  // acknowledged; then come the packets
Request noticeRequest();
Request deletionRequest(std::uint32_t id);

Request startRequest(std::int64_t type);  // acknowledged; what follows is up to the recording
Request stopRequest();

/// Of an update's steps: the frame, and the byte that every answer to it begins with.
Request firmwareRequest(Bytes frame, std::uint8_t answersWith);

/// Any answer to the resume verification is one.
Request resumeRequest(Bytes frame);

/// Acknowledged, and nothing more.
Request firmwareFrame(Bytes frame);

}  // namespace kwtsdk::session::detail
