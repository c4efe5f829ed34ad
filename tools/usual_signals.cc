#include "tools/usual_signals.h"

#include <signal.h>

#include <initializer_list>

namespace kwtsdk::tool {

UsualSignals::UsualSignals() {
  ::posix_spawnattr_init(&attributes_);
  sigset_t none, usual;
  ::sigemptyset(&none);
  ::sigemptyset(&usual);
  for (const int number : {SIGPIPE, SIGXFSZ}) ::sigaddset(&usual, number);
  ::posix_spawnattr_setsigmask(&attributes_, &none);
  ::posix_spawnattr_setsigdefault(&attributes_, &usual);
  ::posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
}

UsualSignals::~UsualSignals() { ::posix_spawnattr_destroy(&attributes_); }

}  // namespace kwtsdk::tool
