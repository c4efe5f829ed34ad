#include "tests/support/failing_sync.h"

#include <atomic>
#include <cerrno>

#include <sys/syscall.h>
#include <unistd.h>

namespace kwtsdk::testing {
namespace {

std::atomic<bool> isFailing{false};

}  // namespace

FailingSync::FailingSync() { isFailing = true; }
FailingSync::~FailingSync() { isFailing = false; }

}  // namespace kwtsdk::testing

/// Instead of the C library's.
extern "C" int fsync(int descriptor) {
  if (!kwtsdk::testing::isFailing) return static_cast<int>(::syscall(SYS_fsync, descriptor));
  errno = EIO;
  return -1;
}
