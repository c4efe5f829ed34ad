#include "tools/frame_text.h"

#include <array>
#include <cstdint>
#include <cstdio>
#include <optional>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/cmd_type.h>

#include "tools/output.h"
#include "tools/words.h"
#include "wire/firmware_channel.h"
#include "wire/recorder_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::tool {
namespace {

std::string hexOf(const Bytes& bytes) {
  constexpr const char* digits = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const std::uint8_t byte : bytes) text.append({digits[byte >> 4U], digits[byte & 15U]});
  return text;
}

/// 0 where the frame has ended.
std::uint32_t number(const Bytes& frame, std::size_t at, std::size_t size) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < size && at + i < frame.size(); ++i)
    value |= static_cast<std::uint32_t>(frame[at + i]) << (8 * i);
  return value;
}

bool is(const Uuid& characteristic, const char* uuid) {
  return characteristic == Uuid::fromString(uuid).value();
}

std::string recordingText(const Bytes& frame, std::size_t at = 4) {
  return "recording " + std::to_string(number(frame, at, 4));
}

// ---- Sent ----

std::string statusQuestion(const Bytes& frame) {
  constexpr std::size_t selectorAt = 16;
  switch (static_cast<wire::StatusQuery>(number(frame, selectorAt, 1))) {
    case wire::StatusQuery::power:
      return "battery level?";
    case wire::StatusQuery::capacity:
      return "storage?";
  }
  return "";
}

std::string firmwareCommand(const Bytes& frame) {
  switch (number(frame, 0, 1)) {
    case 0x8E:
      return "firmware version?";
    case 0x97:
      return "update: prepare";
    case 0x90:
      return "update: partition";
    case 0x8C:
      return "update: resume";
    case 0x80:
      return "update: begin, image of " + bytesText(number(frame, 5, 4));
    case 0x86:
      return "update: configuration";
    case 0x85:
      return "update: " + bytesText(frame.size() - 1) + " of the image";
    case 0x82:
      return "update: check";
    case 0x88:
      return "update: bye";
    case 0x92:
      return "update: install";
    default:
      return "";
  }
}

std::string recorderCommand(const Bytes& frame) {
  const std::uint32_t code = number(frame, 0, 1);
  if (number(frame, 1, 1) == 0x81) {
    if (code == 0) return "start an ambient recording, or stop one";
    return "start a recording, " + typeText(static_cast<std::int64_t>(code) - 1);
  }
  switch (code) {
    case 0x01:
      return "how many recordings?";
    case 0x02:
      return recordingText(frame) + "?";
    case 0x03:
      return "download " + recordingText(frame, 8) + " from byte " + std::to_string(number(frame, 12, 4));
    case 0x13:
      return "the download is complete";
    case 0x04:
      return "delete " + recordingText(frame);
    default:
      return "";
  }
}

// ---- Received ----

std::string statusAnswer(const Bytes& frame) {
  const std::string text = hexOf(frame);
  if (KWTCmdResponse::responseWithCmdType(KWTCmdTypeGetPower, nullptr).isValidResponse(text))
    return "battery level " + std::to_string(KWTCmdResponse::getPower(text));
  const auto counts = KWTCmdResponse::getCapacityResult(text);
  if (!counts) return "";
  return "storage " + std::to_string(counts->at(0)) + " and " + bytesText(counts->at(1));
}

std::string firmwareAnswer(const Bytes& frame) {
  const std::string text = hexOf(frame);
  if (number(frame, 0, 1) == 0x8F) return "firmware " + KWTCmdResponse::getVersion(text);
  if (text.starts_with(wire::kBegun))
    return "update: begun, MTU " + std::to_string(KWTCmdResponse::getMTU(text));
  if (text.starts_with(wire::kResumeVerified)) return "update: resumed";
  for (const auto agreed : {wire::kPrepared, wire::kSideSelected, wire::kConfigured, wire::kSegmentConfirmed,
                            wire::kByeAccepted}) {
    if (text.starts_with(agreed)) return "update: agreed";
    if (text.starts_with(agreed.substr(0, 2))) return "update: refused";
  }
  return "";
}

std::string storeAnswer(const Bytes& frame) {
  const std::string text = hexOf(frame);
  if (const auto info = KWTCmdResponse::getFlashInfo(text))
    return std::to_string(info->Num) + " recordings from id " + std::to_string(info->FirstID) + " on";
  if (const auto file = KWTCmdResponse::getFileInfo(text))
    return file->exist() ? "a recording of " + bytesText(file->filesize()) : "no such recording";
  if (const auto result = KWTCmdResponse::getDeleteFileResult(text))
    return result->at(0) == 0 ? "deleted" : "not deleted, reason " + std::to_string(result->at(0));
  if (number(frame, 0, 1) == 0x13) return "noted";
  if (number(frame, 0, 1) != 0x03) return "";
  constexpr std::int64_t lastData = 1, end = 2;
  std::uint64_t valid = 0;
  const std::int64_t kind = KWTCmdResponse::writeDownloadData(text, &valid, nullptr);
  if (kind == end) return "end of the recording";
  return bytesText(valid) + " of the recording" + (kind == lastData ? ", the last" : "");
}

std::string recorderAnswer(const Bytes& frame) {
  constexpr std::size_t audioHead = 4;
  const std::string text = hexOf(frame);
  if (text.starts_with(wire::kAudioPacket) && frame.size() >= audioHead)
    return "sound, " + bytesText(frame.size() - audioHead);
  if (text == wire::kRefusedInCall) return "not started: in a call";
  if (text == wire::kRefusedNotInCall) return "not started: in no call";
  if (text == wire::kEnded) return "the recording has ended";
  if (text == wire::kEndedByKey) return "the recording has ended, by the key";
  if (text == wire::kEndedByCall) return "the recording has ended, by a call";
  if (text.starts_with(wire::kStopped)) return "stopped";
  if (text.starts_with("1280")) return "started, " + typeText(number(frame, 5, 1));
  return number(frame, 1, 1) == 0x82 ? storeAnswer(frame) : "";
}

}  // namespace

std::string bytesShown(const Bytes& bytes) {
  constexpr std::size_t most = 24;
  std::string text;
  for (std::size_t i = 0; i < bytes.size() && i < most; ++i) {
    std::array<char, 4> byte{};
    std::snprintf(byte.data(), byte.size(), i == 0 ? "%02X" : " %02X", bytes[i]);
    text += byte.data();
  }
  return bytes.size() > most ? text + "... (" + bytesText(bytes.size()) + ")" : text;
}

std::string meaningOf(const Uuid& characteristic, Direction direction, const Bytes& frame) {
  const bool isSent = direction == Direction::toRecorder;
  if (frame.empty()) return "";
  if (is(characteristic, wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY))
    return isSent ? firmwareCommand(frame) : firmwareAnswer(frame);
  if (is(characteristic, wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE) && isSent)
    return statusQuestion(frame);
  if (is(characteristic, wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY) && !isSent)
    return statusAnswer(frame);
  if (is(characteristic, wire::CHARACTERISTIC_WRITE) && isSent) return recorderCommand(frame);
  if (is(characteristic, wire::CHARACTERISTIC_NOTIFY) && !isSent) return recorderAnswer(frame);
  return "";
}

}  // namespace kwtsdk::tool
