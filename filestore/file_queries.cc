#include "filestore/file_queries.h"

#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"
#include "filestore/frames.h"
#include "status/blocking_request.h"

namespace kwtsdk::internal {

void FileQueries::getFileNumAndFirstId(ValueCompletion<FlashInfo> completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_WRITE,
      .notifyOn = CHARACTERISTIC_NOTIFY,
      .cmdType = KWTCmdTypeGetFileNumAndFirstId,
      .frame = countRequest(),
      .onReply =
          [log = channel_.log, completion](const MaybeError&, const std::optional<std::string>& reply) {
            const auto info = KWTCmdResponse::getFlashInfo(reply);
            callHost(log, completion, info ? std::nullopt : MaybeError(fileIdError()), info);
          },
      .onBusy = channel_.errorTo(completion),
      .freesSlot = true,
  });
}

std::optional<FlashInfo> FileQueries::getFileNumAndFirstId() {
  using Info = std::optional<FlashInfo>;
  return blockingRequest<Info>(channel_, QueueId::fileNum, kReplyTimeout, std::nullopt, [this](auto finish) {
    getFileNumAndFirstId([finish](const MaybeError&, const Info& info) { finish(info); });
  });
}

void FileQueries::getFileInfo(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_WRITE,
      .notifyOn = CHARACTERISTIC_NOTIFY,
      .cmdType = KWTCmdTypeGetFileInfo,
      .frame = infoRequest(fileId),
      .onReply =
          [log = channel_.log, completion](const MaybeError& error, const std::optional<std::string>& reply) {
            callHost(log, completion, error, KWTCmdResponse::getFileInfo(reply));
          },
      .onBusy = channel_.errorTo(completion),
      .freesSlot = true,
  });
}

std::optional<KWTFileHeader> FileQueries::getFileInfo(std::int64_t fileId) {
  using Header = std::optional<KWTFileHeader>;
  return blockingRequest<Header>(
      channel_, QueueId::fileInfo, kReplyTimeout, std::nullopt, [this, fileId](auto finish) {
        getFileInfo(fileId, [finish](const MaybeError&, const Header& header) { finish(header); });
      });
}

}  // namespace kwtsdk::internal
