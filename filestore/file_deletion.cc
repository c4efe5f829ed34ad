#include "filestore/file_deletion.h"

#include <utility>

#include <kwtsdk/cmd_response.h>

#include "channel/channels.h"
#include "channel/host_call.h"
#include "codec/error_codes.h"
#include "filestore/frames.h"

namespace kwtsdk::internal {
namespace {

// The recorder's result code is the error's code.
MaybeError errorOfResult(std::uint64_t code) {
  const char* text = nullptr;
  switch (code) {
    case 0:
      return std::nullopt;
    case 1:
      text = "删除失败，ID非系统第一个文件";
      break;
    case 2:
      text = "删除失败，文件ID不存在";
      break;
    case 3:
      text = "删除失败，文件正在使用中";
      break;
    case 4:
      text = "删除失败，文件系统为空";
      break;
    default:
      break;
  }
  return errorWithInfo(static_cast<std::int64_t>(code), text);
}

}  // namespace

void FileDeletion::deleteFile(std::int64_t fileId, ValueCompletion<ByteCounts> completion) {
  channel_.request({
      .writeTo = CHARACTERISTIC_WRITE,
      .notifyOn = CHARACTERISTIC_NOTIFY,
      .cmdType = KWTCmdTypeDeleteFile,
      .frame = deleteRequest(fileId),
      .onReply =
          [log = channel_.log, completion](const MaybeError& error, const std::optional<std::string>& reply) {
            const auto result = KWTCmdResponse::getDeleteFileResult(reply);
            callHost(log, completion, error ? error : errorOfResult(result ? result->front() : 0), result);
          },
      .onBusy = channel_.errorTo(completion),
      .freesSlot = true,
  });
}

void FileDeletion::deleteFirstFlashFile(Completion completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error); };
  if (channel_.refusedAsBusy(refuse)) return;
  const auto work = [this, owner = channel_.owner(), completion] {
    // Without an answer id 0 is sent, and the recorder's refusal is what the caller learns.
    const auto first = static_cast<std::int64_t>(files_.getFileNumAndFirstId().value_or(FlashInfo{}).FirstID);
    deleteFile(first, [log = channel_.log, completion](const MaybeError& error, const auto&) {
      callHost(log, completion, error);
    });
  };
  if (!channel_.queues.async(QueueId::deleteFirst, work)) refuse(noThreadError());
}

}  // namespace kwtsdk::internal
