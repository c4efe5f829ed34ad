#include "filestore/file_listing.h"

#include <utility>

#include "channel/host_call.h"
#include "codec/error_codes.h"

namespace kwtsdk::internal {

void FileListing::getFlashFileList(ValueCompletion<std::vector<KWTFileHeader>> completion) {
  const auto refuse = [&](const Error& error) { callHost(channel_.log, completion, error, std::nullopt); };
  if (channel_.refusedAsBusy(refuse)) return;
  const auto work = [this, owner = channel_.owner(), completion] { list(completion); };
  if (!channel_.queues.async(QueueId::fileList, work)) refuse(noThreadError());
}

void FileListing::list(const ValueCompletion<std::vector<KWTFileHeader>>& completion) {
  status_.getPower();  // wakes the recorder; the level does not matter
  const auto info = files_.getFileNumAndFirstId();
  if (!info) return callHost(channel_.log, completion, fileIdError(), std::nullopt);
  const auto count = static_cast<std::int64_t>(info->Num), first = static_cast<std::int64_t>(info->FirstID);
  std::vector<KWTFileHeader> headers;
  for (std::int64_t i = 0; i < count; ++i) {
    channel_.platform.scheduler->sleep(kPause);
    if (auto header = files_.getFileInfo(first + i)) headers.push_back(*header);
  }
  callHost(channel_.log, completion, std::nullopt, headers);
}

}  // namespace kwtsdk::internal
