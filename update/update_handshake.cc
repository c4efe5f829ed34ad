#include "update/update_handshake.h"

#include <algorithm>
#include <string>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/delivery_scope.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"
#include "update/frames.h"

namespace kwtsdk::internal {
namespace {

using Reply = std::optional<std::string>;

std::string textOf(const Reply& reply) { return reply.value_or("(null)"); }
bool begins(const Reply& reply, const char* prefix) { return reply && reply->starts_with(prefix); }

}  // namespace

void UpdateHandshake::exchange(std::int64_t cmdType, const Bytes& frame, const StepCompletion& completion,
                               const Judge& judge,
                               const std::function<void(const Reply& reply)>& afterwards) {
  const auto handler = [&](CommandChannel::Subscription subscription) -> ReplyHandler {
    return [this, weak = channel_.weakOwner(), completion, judge, afterwards, subscription](
               const MaybeError& error, const Reply& reply) {
      const auto alive = weak.lock();
      if (!alive) return;
      const CallbackSlot::Generation pending = DeliveryScope::generationOf(channel_.dispatcher.pending);
      const MaybeError outcome = judge(error, reply);
      callHost(channel_.log, completion, outcome, !outcome);
      channel_.dispatcher.pending.clearUpTo(pending);
      channel_.endSubscription(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, subscription);
      if (afterwards) afterwards(reply);
    };
  };
  channel_.exchange(CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY, cmdType, frame, handler);
}

void UpdateHandshake::updatePrepare(const StepCompletion& completion) {
  exchange(KWTCmdTypeUpdatePrepare, prepareRequest(), completion,
           [log = channel_.log](const MaybeError& error, const Reply& reply) -> MaybeError {
             log.info("updatePrepare:%@ error:%@", textOf(reply), description(error));
             return begins(reply, "9801") ? std::nullopt : MaybeError(updatePrepareError());
           });
}

void UpdateHandshake::updateSelectionSide(const StepCompletion& completion) {
  exchange(KWTCmdTypeUpdatePrepare, selectionRequest(), completion,
           [log = channel_.log](const MaybeError&, const Reply& reply) -> MaybeError {
             const MaybeError outcome =
                 begins(reply, "9101") ? std::nullopt : MaybeError(updateSelectionError());
             log.info("updateSelectionSide:%@ error:%@", textOf(reply), description(outcome));
             return outcome;
           });
}

void UpdateHandshake::updateResumeVerify(std::int64_t segmentSize, std::uint64_t offset,
                                         const StepCompletion& completion) {
  exchange(KWTCmdTypeUpdateResumeVerify, resumeRequest(segmentSize, offset), completion,
           [log = channel_.log](const MaybeError& error, const Reply& reply) {
             log.info("updateResumeVerify:%@ error:%@", textOf(reply), description(error));
             return error;
           });
}

void UpdateHandshake::updateBegin(const Bytes& image, const StepCompletion& completion) {
  exchange(
      KWTCmdTypeUpdateBegin, beginRequest(image), completion,
      [this](const MaybeError& error, const Reply& reply) {
        mtu = std::min(KWTCmdResponse::getMTU(reply), longestWrite());
        return error;
      },
      [log = channel_.log](const Reply& reply) {
        log.info("updateBegin, MTU:%ld", KWTCmdResponse::getMTU(reply));
      });
}

std::int64_t UpdateHandshake::longestWrite() const {
  const auto peripheral = channel_.link.peripheral();
  std::int64_t longest = 0;
  guardedCall(channel_.log, "Peripheral::maximumWriteValueLengthForType", [&] {
    if (!peripheral) return;
    longest = static_cast<std::int64_t>(peripheral->maximumWriteValueLengthForType(WriteType::withResponse));
  });
  return longest;
}

void UpdateHandshake::updateConfig(const Bytes& image, const StepCompletion& completion) {
  exchange(
      KWTCmdTypeUpdateConfig, configRequest(image), completion,
      [](const MaybeError&, const Reply& reply) -> MaybeError {
        return begins(reply, "8701") ? std::nullopt : MaybeError(updateConfigError());
      },
      [log = channel_.log](const Reply& reply) {
        log.info("updateConfig, ret:%d", begins(reply, "8701") ? 1 : 0);
      });
}

}  // namespace kwtsdk::internal
