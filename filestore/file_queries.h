#pragma once

#include <optional>
#include <vector>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/file_header.h>

#include "channel/command_channel.h"
#include "status/status_queries.h"

namespace kwtsdk::internal {

/// What the recorder's store holds: number of files and first id, one file's header, the list of headers.
class FileQueries {
 public:
  FileQueries(CommandChannel& channel, StatusQueries& status) : channel_(channel), status_(status) {}

  void getFileNumAndFirstId(const ValueCompletion<FlashInfo>& completion) {
    channel_.send(countQuery(completion));
  }
  std::optional<FlashInfo> getFileNumAndFirstId();

  /// The id of the store's first file; 0 when it is empty or the query failed.
  std::int64_t firstId();

  void getFileInfo(std::int64_t fileId, const ValueCompletion<KWTFileHeader>& completion) {
    channel_.send(infoQuery(fileId, completion));
  }
  std::optional<KWTFileHeader> getFileInfo(std::int64_t fileId);

  /// One query after the other, on a queue.
  void getFlashFileList(const ValueCompletion<std::vector<KWTFileHeader>>& completion);

 private:
  Command::Plan countQuery(ValueCompletion<FlashInfo> completion) const;
  Command::Plan infoQuery(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion) const;
  std::optional<std::vector<KWTFileHeader>> list(MaybeError& error);

  CommandChannel& channel_;
  StatusQueries& status_;
};

}  // namespace kwtsdk::internal
