#include "status/status_queries.h"

#include <kwtsdk/cmd_response.h>

#include "codec/hex.h"
#include "wire/firmware_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk::internal {
namespace {

constexpr QueueLabel kPowerQueue{"com.kwt.sdk.getpower"}, kVersionQueue{"com.kwt.sdk.getFirmwareVersion"},
    kCapacityQueue{"com.kwt.sdk.getCapacity"};

}  // namespace

Command::Plan StatusQueries::powerQuery(LevelCompletion completion) const {
  return {.type = KWTCmdTypeGetPower,
          .writeTo = wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
          .notifyOn = wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
          .frame = toData(wire::COMMAND_POWER),
          .onAnswer =
              [log = channel_.log, completion](const Answer& answer) {
                callHost(log, completion, std::nullopt, KWTCmdResponse::getPower(answer.reply));
              },
          .onBusy = [log = channel_.log,
                     completion](const Error& error) { callHost(log, completion, error, 0U); }};
}

std::int64_t StatusQueries::getPower() {
  return channel_.ask<std::int64_t>(kPowerQueue, kReplyTimeout, -1, [this](auto finish) {
    return powerQuery(
        [finish](const MaybeError&, std::uint64_t level) { finish(static_cast<std::int64_t>(level)); });
  });
}

Command::Plan StatusQueries::versionQuery(ValueCompletion<std::string> completion) const {
  return {.type = KWTCmdTypeGetFirmwareVersion,
          .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
          .notifyOn = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
          .frame = wire::versionRequest(),
          .onAnswer =
              [log = channel_.log, completion](const Answer& answer) {
                callHost(log, completion, std::nullopt, KWTCmdResponse::getVersion(answer.reply));
              },
          .onBusy = channel_.errorTo(completion)};
}

std::optional<std::string> StatusQueries::getFirmwareVersion() {
  return channel_.askFor<std::string>(kVersionQueue, kReplyTimeout,
                                      [this](auto completion) { return versionQuery(completion); });
}

Command::Plan StatusQueries::capacityQuery(ValueCompletion<ByteCounts> completion) const {
  return {.type = KWTCmdTypeGetCapacity,
          .writeTo = wire::CHARACTERISTIC_FOR_COMMUNICATION_WRITE,
          .notifyOn = wire::CHARACTERISTIC_FOR_COMMUNICATION_NOTIFY,
          .frame = wire::statusRequest(wire::StatusQuery::capacity),
          .onAnswer =
              [log = channel_.log, completion](const Answer& answer) {
                callHost(log, completion, answer.error, KWTCmdResponse::getCapacityResult(answer.reply));
              },
          .onBusy = channel_.errorTo(completion)};
}

std::optional<ByteCounts> StatusQueries::getCapacity() {
  return channel_.askFor<ByteCounts>(kCapacityQueue, kReplyTimeout,
                                     [this](auto completion) { return capacityQuery(completion); });
}

}  // namespace kwtsdk::internal
