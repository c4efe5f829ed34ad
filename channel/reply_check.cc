#include <string_view>
#include <utility>

#include <kwtsdk/cmd_response.h>
#include <kwtsdk/cmd_type.h>

namespace kwtsdk {
namespace {

bool isStatusByte(const std::string& reply, std::string_view prefix) {
  return reply.size() > 3 && reply.starts_with(prefix);
}

}  // namespace

KWTCmdResponse KWTCmdResponse::responseWithCmdType(std::int64_t cmdType, ReplyHandler completion) {
  return {cmdType, std::move(completion)};
}

bool KWTCmdResponse::isValidResponse(const std::string& reply) const {
  switch (cmdType_) {
    case KWTCmdTypeGetPower:
      return reply.size() >= 64 && reply.starts_with("99ec") && reply.compare(40, 2, "03") == 0;
    case KWTCmdTypeUpdatePrepare:
      return isStatusByte(reply, "980");
    case KWTCmdTypeUpdateBegin:
      return reply.size() >= 22 && reply.starts_with("8142455354");
    case KWTCmdTypeUpdateConfig:
      return isStatusByte(reply, "870");
    case KWTCmdTypeUpdateCheckData:
      return isStatusByte(reply, "830");
    case KWTCmdTypeUpdateBye:
      return isStatusByte(reply, "840");
    default:
      return true;
  }
}

}  // namespace kwtsdk
