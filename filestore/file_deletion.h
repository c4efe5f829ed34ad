#pragma once

#include "filestore/file_queries.h"

namespace kwtsdk::internal {

/// Deletion of one file, and of whichever is first.
class FileDeletion {
 public:
  FileDeletion(CommandChannel& channel, FileQueries& files) : channel_(channel), files_(files) {}

  void deleteFile(std::int64_t fileId, ValueCompletion<ByteCounts> completion);
  void deleteFirstFlashFile(Completion completion);

 private:
  CommandChannel& channel_;
  FileQueries& files_;
};

}  // namespace kwtsdk::internal
