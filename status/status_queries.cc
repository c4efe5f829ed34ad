#include "status/status_queries.h"

#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/host_call.h"
#include "codec/crc32.h"
#include "codec/hex.h"
#include "status/blocking_request.h"

namespace kwtsdk::internal {
namespace {

// A status frame: 99 EC 2A 02 B2, payload length (16-bit), payload, CRC-32 of the payload.
constexpr char COMMAND_POWER[] = "99EC2A02B20A0001000000000000001003A34083DF";

// 8E and the firmware channel's magic, the letters BEST.
constexpr char GET_VERSION_CMD[] = "8e42455354";

Bytes capacityFrame() {
  const std::string payload = "0100000000000000107f";
  return toData("99ec2a02b2" + std::string("0a00") + payload +
                littleEndianHexStringWithLength(crc32Value(toData(payload)), 8));
}

}  // namespace

void StatusQueries::getPower(LevelCompletion completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
      .notifyOn = CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
      .cmdType = KWTCmdTypeGetPower,
      .frame = toData(COMMAND_POWER),
      .onReply =
          [log = channel_.log, completion](const MaybeError&, const std::optional<std::string>& reply) {
            callHost(log, completion, std::nullopt, KWTCmdResponse::getPower(reply));
          },
      .onBusy = [log = channel_.log,
                 completion](const Error& error) { callHost(log, completion, error, 0U); },
  });
}

std::int64_t StatusQueries::getPower() {
  return blockingRequest<std::int64_t>(channel_, QueueId::getPower, kReplyTimeout, -1, [this](auto finish) {
    getPower([finish](const MaybeError&, std::uint64_t level) { finish(static_cast<std::int64_t>(level)); });
  });
}

void StatusQueries::getFirmwareVersion(ValueCompletion<std::string> completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
      .notifyOn = CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
      .cmdType = KWTCmdTypeGetFirmwareVersion,
      .frame = toData(GET_VERSION_CMD),
      .onReply =
          [log = channel_.log, completion](const MaybeError&, const std::optional<std::string>& reply) {
            callHost(log, completion, std::nullopt, KWTCmdResponse::getVersion(reply));
          },
      .onBusy = channel_.errorTo(completion),
  });
}

std::optional<std::string> StatusQueries::getFirmwareVersion() {
  using Version = std::optional<std::string>;
  return blockingRequest<Version>(
      channel_, QueueId::getFirmwareVersion, kReplyTimeout, std::nullopt, [this](auto finish) {
        getFirmwareVersion([finish](const MaybeError&, const Version& version) { finish(version); });
      });
}

void StatusQueries::getCapacity(ValueCompletion<ByteCounts> completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
      .notifyOn = CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
      .cmdType = KWTCmdTypeGetCapacity,
      .frame = capacityFrame(),
      .onReply =
          [log = channel_.log, completion](const MaybeError& error, const std::optional<std::string>& reply) {
            callHost(log, completion, error, KWTCmdResponse::getCapacityResult(reply));
          },
      .onBusy = channel_.errorTo(completion),
  });
}

std::optional<ByteCounts> StatusQueries::getCapacity() {
  using Capacity = std::optional<ByteCounts>;
  return blockingRequest<Capacity>(
      channel_, QueueId::getCapacity, kReplyTimeout, std::nullopt, [this](auto finish) {
        getCapacity([finish](const MaybeError&, const Capacity& capacity) { finish(capacity); });
      });
}

}  // namespace kwtsdk::internal
