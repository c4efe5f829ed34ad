#include "filestore/file_removal.h"

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::internal {
namespace {

constexpr QueueLabel kNoticeQueue{"com.kwt.notifyDownloadSuccess"};
constexpr QueueLabel kDeletionQueue{"com.kwt.getflashlist"};  // shares its label with the listing's, no more
constexpr Duration kNoticeTimeout = std::chrono::seconds(2);

}  // namespace

Command::Plan FileRemoval::notice(ReplyHandler completion) const {
  return {.type = KWTCmdTypeNotifyDownloadSuccess,
          .writeTo = wire::CHARACTERISTIC_WRITE,
          .notifyOn = wire::CHARACTERISTIC_NOTIFY,
          .frame = wire::downloadNotice(),
          .onAnswer = [log = channel_.log, completion](
                          const Answer& answer) { callHost(log, completion, answer.error, answer.reply); },
          .onBusy = channel_.errorTo(completion)};
}

bool FileRemoval::notifyDownloadSuccess() {
  return channel_.ask<bool>(kNoticeQueue, kNoticeTimeout, true, [this](auto finish) {
    return notice([finish](const MaybeError&, const Reply&) { finish(true); });
  });
}

void FileRemoval::deleteFile(std::int64_t fileId, const ValueCompletion<ByteCounts>& completion) {
  channel_.send({.type = KWTCmdTypeDeleteFile,
                 .writeTo = wire::CHARACTERISTIC_WRITE,
                 .notifyOn = wire::CHARACTERISTIC_NOTIFY,
                 .frame = wire::deleteRequest(fileId),
                 .onAnswer =
                     [log = channel_.log, completion](const Answer& answer) {
                       const auto result = KWTCmdResponse::getDeleteFileResult(answer.reply);
                       callHost(log, completion,
                                answer.error ? answer.error : deletionError(result ? result->front() : 0),
                                result);
                     },
                 .onBusy = channel_.errorTo(completion),
                 .clearsPending = true});
}

void FileRemoval::deleteFirstFlashFile(const Completion& completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  if (channel_.refusedAsBusy(refuse)) return;
  const auto fail = [this](const Completion& told) { callHost(channel_.log, told, noResourcesError()); };
  const auto work = [this, owner = channel_.owner(), completion, fail] {
    // Without an answer id 0 is sent, and what the recorder says to that is what the caller learns.
    const bool isSent = guardedCall(channel_.log, "A deletion", [&] {
      deleteFile(files_.firstId(), [log = channel_.log, completion](const MaybeError& error, const auto&) {
        callHost(log, completion, error);
      });
    });
    if (!isSent) fail(completion);
  };
  if (!channel_.queues.async(kDeletionQueue, work)) fail(completion);
}

}  // namespace kwtsdk::internal
