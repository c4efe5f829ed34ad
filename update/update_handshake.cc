#include "update/update_handshake.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "codec/hex.h"
#include "wire/firmware_channel.h"

namespace kwtsdk::internal {
namespace {

std::string textOf(const Reply& reply) { return reply.value_or("(null)"); }
bool begins(const Reply& reply, std::string_view prefix) { return reply && reply->starts_with(prefix); }

}  // namespace

void UpdateHandshake::step(std::int64_t type, Bytes frame, const StepCompletion& completion,
                           const Judge& judge, const std::function<void(const Reply& reply)>& afterwards) {
  channel_.send({.type = type,
                 .writeTo = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .notifyOn = wire::CHARACTERISTIC_FOR_OTA_WRITE_AND_NOTIFY,
                 .frame = std::move(frame),
                 .onAnswer =
                     [log = channel_.log, completion, judge, afterwards](const Answer& answer) {
                       const MaybeError outcome = judge(answer.error, answer.reply);
                       callHost(log, completion, outcome, !outcome);
                       answer.cleanUp();
                       guardedCall(log, "The end of a step", [&] {
                         if (afterwards) afterwards(answer.reply);
                       });
                     },
                 .clearsPending = true});
}

void UpdateHandshake::updatePrepare(const StepCompletion& completion) {
  step(KWTCmdTypeUpdatePrepare, wire::prepareRequest(), completion,
       [log = channel_.log](const MaybeError& error, const Reply& reply) -> MaybeError {
         log.info("updatePrepare:%@ error:%@", textOf(reply), error);
         return begins(reply, wire::kPrepared) ? std::nullopt : MaybeError(updatePrepareError());
       });
}

void UpdateHandshake::updateSelectionSide(const StepCompletion& completion) {
  step(KWTCmdTypeUpdatePrepare, wire::selectionRequest(), completion,
       [log = channel_.log](const MaybeError&, const Reply& reply) -> MaybeError {
         const MaybeError outcome =
             begins(reply, wire::kSideSelected) ? std::nullopt : MaybeError(updateSelectionError());
         log.info("updateSelectionSide:%@ error:%@", textOf(reply), outcome);
         return outcome;
       });
}

void UpdateHandshake::updateResumeVerify(std::int64_t segmentSize, std::uint64_t offset,
                                         const StepCompletion& completion) {
  step(KWTCmdTypeUpdateResumeVerify, wire::resumeRequest(segmentSize, offset), completion,
       [log = channel_.log](const MaybeError& error, const Reply& reply) {
         log.info("updateResumeVerify:%@ error:%@", textOf(reply), error);
         return error;
       });
}

void UpdateHandshake::updateBegin(const Bytes& image, const StepCompletion& completion) {
  step(
      KWTCmdTypeUpdateBegin, wire::beginRequest(image), completion,
      [this](const MaybeError& error, const Reply& reply) {
        constexpr std::size_t kMost = std::numeric_limits<std::int64_t>::max();  // of those without a limit
        const auto longest = static_cast<std::int64_t>(std::min(channel_.binding.longestWrite(), kMost));
        mtu = std::min(KWTCmdResponse::getMTU(reply), longest);
        return error;
      },
      [log = channel_.log](const Reply& reply) {
        log.info("updateBegin, MTU:%ld", KWTCmdResponse::getMTU(reply));
      });
}

void UpdateHandshake::updateConfig(const Bytes& image, const StepCompletion& completion) {
  step(
      KWTCmdTypeUpdateConfig, wire::configRequest(identifyImage(image).value_or("")), completion,
      [](const MaybeError&, const Reply& reply) -> MaybeError {
        return begins(reply, wire::kConfigured) ? std::nullopt : MaybeError(updateConfigError());
      },
      [log = channel_.log](const Reply& reply) {
        log.info("updateConfig, ret:%d", begins(reply, wire::kConfigured) ? 1 : 0);
      });
}

}  // namespace kwtsdk::internal
