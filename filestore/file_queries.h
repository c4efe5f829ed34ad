#pragma once

#include <optional>

#include <kwtsdk/callbacks.h>
#include <kwtsdk/file_header.h>

#include "channel/command_channel.h"

namespace kwtsdk::internal {

/// What the store holds, and one file's header.
class FileQueries {
 public:
  explicit FileQueries(CommandChannel& channel) : channel_(channel) {}

  void getFileNumAndFirstId(ValueCompletion<FlashInfo> completion);
  std::optional<FlashInfo> getFileNumAndFirstId();
  void getFileInfo(std::int64_t fileId, ValueCompletion<KWTFileHeader> completion);
  std::optional<KWTFileHeader> getFileInfo(std::int64_t fileId);

 private:
  CommandChannel& channel_;
};

}  // namespace kwtsdk::internal
