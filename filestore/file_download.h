#pragma once

#include <memory>
#include <string>

#include "filestore/file_queries.h"
#include "filestore/file_removal.h"
#include "status/status_queries.h"

namespace kwtsdk::internal {

/// Download of the store's first file.
class FileDownload {
 public:
  FileDownload(CommandChannel& channel, StatusQueries& status, FileQueries& files, FileRemoval& removal)
      : channel_(channel), status_(status), files_(files), removal_(removal) {}

  void downloadFirstFlashFile(const std::string& outputFilePath, Progress progress, Completion completion);

 private:
  struct Transfer;
  using SharedTransfer = std::shared_ptr<Transfer>;

  // On the download queue, one after the other.
  void prepare(const SharedTransfer& transfer);
  void request(const SharedTransfer& transfer);
  void takePacket(const SharedTransfer& transfer, const Reply& packet);
  void finish(const SharedTransfer& transfer);
  void abandon(const SharedTransfer& transfer);

  bool isWanted(const SharedTransfer& transfer);
  bool begin(const SharedTransfer& transfer);
  void armWatchdog();
  ReplyHandler packetReceiver(const SharedTransfer& transfer);
  void queuePacket(std::shared_ptr<void> owner, const SharedTransfer& transfer, const Reply& packet);

  CommandChannel& channel_;
  StatusQueries& status_;
  FileQueries& files_;
  FileRemoval& removal_;
};

}  // namespace kwtsdk::internal
