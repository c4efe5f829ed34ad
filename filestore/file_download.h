#pragma once

#include <memory>
#include <string>

#include "filestore/file_deletion.h"
#include "filestore/file_queries.h"
#include "status/status_queries.h"

namespace kwtsdk::internal {

/// Download of the store's first file, and the notice that it succeeded.
class FileDownload {
 public:
  FileDownload(CommandChannel& channel, StatusQueries& status, FileQueries& files, FileDeletion& deletion)
      : channel_(channel), status_(status), files_(files), deletion_(deletion) {}

  void downloadFirstFlashFile(const std::string& outputFilePath, Progress progress, Completion completion);
  void notifyDownloadSuccess(ReplyHandler completion);
  bool notifyDownloadSuccess();

 private:
  struct Job;
  using SharedJob = std::shared_ptr<Job>;

  // On the download queue, one after the other.
  void prepare(const SharedJob& job);
  void stream(const SharedJob& job);
  std::optional<Dispatcher::Refusal> sendRequest(const SharedJob& job, const Request& request);
  void takePacket(const SharedJob& job, const std::optional<std::string>& packet);
  void finish(const SharedJob& job);
  Dispatcher::Delivery complete(const SharedJob& job);
  void abandon(const SharedJob& job);
  void logFailedWrite(const SharedJob& job);

  void armWatchdog();
  ReplyHandler packetReceiver(const SharedJob& job);

  CommandChannel& channel_;
  StatusQueries& status_;
  FileQueries& files_;
  FileDeletion& deletion_;
};

}  // namespace kwtsdk::internal
