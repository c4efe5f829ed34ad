#include "tests/support/failing_sync.h"

#include <cerrno>

#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

/// Instead of the C library's.
extern "C" int fsync(int descriptor) {
  using kwtsdk::testing::FailingSync;
  const auto failing = FailingSync::failing.load();
  struct stat status {};
  const bool isFolder = ::fstat(descriptor, &status) == 0 && S_ISDIR(status.st_mode);
  if (failing == FailingSync::Of::none || (failing == FailingSync::Of::folders && !isFolder))
    return static_cast<int>(::syscall(SYS_fsync, descriptor));
  errno = EIO;
  return -1;
}
