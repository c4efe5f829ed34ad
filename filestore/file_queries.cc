#include "filestore/file_queries.h"

#include <kwtsdk/cmd_response.h>

#include "codec/error_codes.h"
#include "wire/recorder_channel.h"

namespace kwtsdk::internal {
namespace {

constexpr QueueLabel kCountQueue{"com.kwt.getflashlist.filenum"}, kInfoQueue{"com.kwt.getFileInfo"},
    kListQueue{"com.kwt.getflashlist"};

}  // namespace

Command::Plan FileQueries::countQuery(ValueCompletion<FlashInfo> completion) const {
  return {.type = KWTCmdTypeGetFileNumAndFirstId,
          .writeTo = wire::CHARACTERISTIC_WRITE,
          .notifyOn = wire::CHARACTERISTIC_NOTIFY,
          .frame = wire::countRequest(),
          .onAnswer =
              [log = channel_.log, completion](const Answer& answer) {
                const auto info = KWTCmdResponse::getFlashInfo(answer.reply);
                callHost(log, completion, info ? std::nullopt : MaybeError(fileIdError()), info);
              },
          .onBusy = channel_.errorTo(completion),
          .clearsPending = true};
}

std::optional<FlashInfo> FileQueries::getFileNumAndFirstId() {
  return channel_.askFor<FlashInfo>(kCountQueue, kReplyTimeout,
                                    [this](auto completion) { return countQuery(completion); });
}

std::int64_t FileQueries::firstId() {
  return static_cast<std::int64_t>(getFileNumAndFirstId().value_or(FlashInfo{}).FirstID);
}

Command::Plan FileQueries::infoQuery(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion) const {
  return {.type = KWTCmdTypeGetFileInfo,
          .writeTo = wire::CHARACTERISTIC_WRITE,
          .notifyOn = wire::CHARACTERISTIC_NOTIFY,
          .frame = wire::infoRequest(fileId),
          .onAnswer =
              [log = channel_.log, completion](const Answer& answer) {
                callHost(log, completion, answer.error, KWTCmdResponse::getFileInfo(answer.reply));
              },
          .onBusy = channel_.errorTo(completion),
          .clearsPending = true};
}

std::optional<KWTFileHeader> FileQueries::getFileInfo(std::int64_t fileId) {
  return channel_.askFor<KWTFileHeader>(
      kInfoQueue, kReplyTimeout, [this, fileId](auto completion) { return infoQuery(fileId, completion); });
}

void FileQueries::getFlashFileList(const ValueCompletion<std::vector<KWTFileHeader>>& completion) {
  if (channel_.refusedAsBusy(channel_.errorTo(completion))) return;
  const auto fail = [this](const auto& told) {
    callHost(channel_.log, told, noResourcesError(), std::nullopt);
  };
  const auto work = [this, owner = channel_.owner(), completion, fail] {
    std::optional<std::vector<KWTFileHeader>> headers;
    MaybeError error;
    if (!guardedCall(channel_.log, "A listing", [&] { headers = list(error); })) return fail(completion);
    callHost(channel_.log, completion, error, headers);
  };
  if (!channel_.queues.async(kListQueue, work)) fail(completion);
}

std::optional<std::vector<KWTFileHeader>> FileQueries::list(MaybeError& error) {
  status_.getPower();  // wakes the recorder; the level does not matter
  const auto info = getFileNumAndFirstId();
  if (!info) {
    error = fileIdError();
    return std::nullopt;
  }
  const auto count = static_cast<std::int64_t>(info->Num), first = static_cast<std::int64_t>(info->FirstID);
  std::vector<KWTFileHeader> headers;
  for (std::int64_t i = 0; i < count; ++i) {
    channel_.platform.scheduler->sleep(kPause);
    if (auto header = getFileInfo(first + i)) headers.push_back(*header);
  }
  return headers;
}

}  // namespace kwtsdk::internal
