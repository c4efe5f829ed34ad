#include <string_view>
#include <utility>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/cmd_type.h>

#include "wire/firmware_channel.h"
#include "wire/status_channel.h"

namespace kwtsdk {
namespace {

constexpr std::size_t kBegunLength = 22;  // hex characters

// Whatever the status, of which the last character is left out.
bool isStatus(const std::string& reply, std::string_view success) {
  return reply.size() >= success.size() && reply.starts_with(success.substr(0, success.size() - 1));
}

}  // namespace

KWTCmdResponse KWTCmdResponse::responseWithCmdType(std::int64_t cmdType, ReplyHandler completion) {
  return {cmdType, std::move(completion)};
}

bool KWTCmdResponse::isValidResponse(const std::string& reply) const {
  switch (cmdType_) {
    case KWTCmdTypeGetPower:
      return wire::isPowerReply(reply);
    case KWTCmdTypeUpdatePrepare:
      return isStatus(reply, wire::kPrepared);
    case KWTCmdTypeUpdateBegin:
      return reply.size() >= kBegunLength && reply.starts_with(wire::kBegun);
    case KWTCmdTypeUpdateConfig:
      return isStatus(reply, wire::kConfigured);
    case KWTCmdTypeUpdateCheckData:
      return isStatus(reply, wire::kSegmentConfirmed);
    case KWTCmdTypeUpdateBye:
      return isStatus(reply, wire::kByeAccepted);
    default:
      return true;
  }
}

}  // namespace kwtsdk
