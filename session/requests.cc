#include "session/requests.h"

#include <algorithm>
#include <array>
#include <string_view>
#include <utility>

#include "codec/hex.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::session::detail {
namespace {

using internal::hexString;

// The first byte of a version reply is not fixed; those of an update's answers are.
constexpr std::array<std::uint8_t, 6> kUpdateAnswers{0x98, 0x91, 0x81, 0x87, 0x83, 0x84};

/// An answer that begins so and has at least so many bytes.
Request::IsAnswer headed(std::string_view head, std::size_t size) {
  return
      [head, size](const Bytes& value) { return value.size() >= size && hexString(value).starts_with(head); };
}

bool answersUpdate(const Bytes& value) {
  return !value.empty() && std::ranges::find(kUpdateAnswers, value[0]) != kUpdateAnswers.end();
}

Request statusRequest(wire::StatusQuery query, Request::IsAnswer isAnswer) {
  return {wire::statusRequest(query), wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
          wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY, std::move(isAnswer)};
}

Request recorderRequest(Bytes frame, Request::IsAnswer isAnswer) {
  return {std::move(frame), wire::CHARACTERISTIC_WRITE, wire::CHARACTERISTIC_NOTIFY, std::move(isAnswer)};
}

Request onFirmwareChannel(Bytes frame, Request::IsAnswer isAnswer) {
  constexpr const char* channel = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY;
  return {std::move(frame), channel, channel, std::move(isAnswer)};
}

}  // namespace

Request batteryRequest() {
  return statusRequest(wire::StatusQuery::power,
                       [](const Bytes& value) { return wire::isPowerReply(hexString(value)); });
}

Request storageRequest() {
  return statusRequest(wire::StatusQuery::capacity, [](const Bytes& value) {
    const std::string text = hexString(value);
    return wire::statusValue(text, 0, 1) && !wire::isPowerReply(text);
  });
}

Request versionRequest() {
  constexpr std::size_t shortest = 9;
  return onFirmwareChannel(wire::versionRequest(), [](const Bytes& value) {
    return value.size() >= shortest && !answersUpdate(value);
  });
}

Request countRequest() { return recorderRequest(wire::countRequest(), headed(wire::kFlashInfo, 12)); }

Request infoRequest(std::uint32_t id) {
  return recorderRequest(wire::infoRequest(id), headed(wire::kFileInfo, 40));
}

Request downloadRequest(std::uint32_t id, std::uint64_t offset) {
  return recorderRequest(wire::downloadRequest(id, offset), nullptr);
}

Request noticeRequest() { return recorderRequest(wire::downloadNotice(), headed("1382", 2)); }

Request deletionRequest(std::uint32_t id) {
  return recorderRequest(wire::deleteRequest(id), headed(wire::kDeleteResult, 8));
}

Request startRequest(std::int64_t type) { return recorderRequest(wire::startRecordRequest(type), nullptr); }

Request stopRequest() {
  return recorderRequest(wire::stopRecordRequest(), [](const Bytes& value) {
    const std::string text = hexString(value);
    return text.starts_with(wire::kStopped) || text == wire::kEnded;
  });
}

Request firmwareRequest(Bytes frame, std::uint8_t answersWith) {
  return onFirmwareChannel(std::move(frame), [answersWith](const Bytes& value) {
    return value.size() >= 2 && value[0] == answersWith;
  });
}

Request resumeRequest(Bytes frame) {
  return onFirmwareChannel(std::move(frame), [](const Bytes& value) { return !answersUpdate(value); });
}

Request firmwareFrame(Bytes frame) { return onFirmwareChannel(std::move(frame), nullptr); }

}  // namespace kwtsdk::session::detail
