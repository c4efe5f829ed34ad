#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/download_watch.h"
#include "tools/session.h"

namespace kwtsdk::tool {

/// One download of the first recording into a file, until its end whatever that is. Ctrl-C ends it too.
class Download {
 public:
  Download(Session& session, std::string path);
  ~Download();
  Download(const Download&) = delete;
  Download& operator=(const Download&) = delete;

  /// When this returns, all that arrived is in the file and nothing more will be written to it.
  DownloadOutcome run();

  /// After a good end; none without word of it.
  std::optional<Deletion> waitForDeletion();

 private:
  void takeRest(DownloadEnd end);

  Session& session_;
  const std::string path_;
  const std::shared_ptr<DownloadWatch> watch_;
  const std::shared_ptr<Semaphore> released_;
};

}  // namespace kwtsdk::tool
