#pragma once

#include <vector>

#include "filestore/file_queries.h"
#include "status/status_queries.h"

namespace kwtsdk::internal {

/// The headers of all files, one query after the other.
class FileListing {
 public:
  FileListing(CommandChannel& channel, StatusQueries& status, FileQueries& files)
      : channel_(channel), status_(status), files_(files) {}

  void getFlashFileList(ValueCompletion<std::vector<KWTFileHeader>> completion);

 private:
  void list(const ValueCompletion<std::vector<KWTFileHeader>>& completion);

  CommandChannel& channel_;
  StatusQueries& status_;
  FileQueries& files_;
};

}  // namespace kwtsdk::internal
