#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "tools/installation_watch.h"
#include "tools/session.h"

namespace kwtsdk::tool {

struct InstallationOutcome {
  InstallationEnd end;
  MaybeError error;  // of `reported`; none: installed
  InstallationStep step;
  std::uint64_t confirmed;  // bytes
};

/// One update with the image in a file, until its end whatever that is. Ctrl-C ends it too.
class Installation {
 public:
  Installation(Session& session, std::string path, std::uint64_t size);
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  /// Every end that the library did not report has disconnected the link: the recorder then forgets the
  /// update, so that the next one starts cleanly.
  InstallationOutcome run();

 private:
  void abandon();

  Session& session_;
  const std::string path_;
  const std::shared_ptr<InstallationWatch> watch_;
};

}  // namespace kwtsdk::tool
