#include "tests/support/failing_sync.h"

#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

/// Instead of the C library's.
extern "C" int fsync(int descriptor) {
  if (!kwtsdk::testing::FailingSync::isFailing) return static_cast<int>(::syscall(SYS_fsync, descriptor));
  errno = EIO;
  return -1;
}
