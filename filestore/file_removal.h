#pragma once

#include "filestore/file_queries.h"

namespace kwtsdk::internal {

/// What takes a file off the recorder: the notice that it has been downloaded, and its deletion.
class FileRemoval {
 public:
  FileRemoval(CommandChannel& channel, FileQueries& files) : channel_(channel), files_(files) {}

  void notifyDownloadSuccess(const ReplyHandler& completion) { channel_.send(notice(completion)); }
  bool notifyDownloadSuccess();

  void deleteFile(std::int64_t fileId, const ValueCompletion<ByteCounts>& completion);

  /// Whichever is the first when the recorder is asked.
  void deleteFirstFlashFile(const Completion& completion);

 private:
  Command::Plan notice(ReplyHandler completion) const;

  CommandChannel& channel_;
  FileQueries& files_;
};

}  // namespace kwtsdk::internal
