#include "tests/bluez/private_bus.h"

#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <utility>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace kwtsdk::testing {

PrivateBus::PrivateBus(Policy policy) {
  const std::string address = "unix:path=" + folder_.file("socket");
  writeFile(folder_.file("conf"),
            "<busconfig><listen>" + address +
                "</listen><auth>EXTERNAL</auth><policy context='default'><allow user='*'/><allow own='*'/>"
                "<allow send_destination='*' eavesdrop='true'/><allow eavesdrop='true'/>" +
                (policy == Policy::open ? "" : "<deny send_destination='org.bluez'/>") +
                "</policy></busconfig>");
  ::setenv("DBUS_SYSTEM_BUS_ADDRESS", address.c_str(), 1);
  start();
}

void PrivateBus::start() {
  const std::string configuration = "--config-file=" + folder_.file("conf");
  const char* const arguments[]{"dbus-daemon", configuration.c_str(), "--nofork", "--print-address=1",
                                nullptr};
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) throw std::runtime_error("no pipe for dbus-daemon");
  posix_spawn_file_actions_t actions;
  ::posix_spawn_file_actions_init(&actions);
  ::posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  ::posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);  // what it grumbles
  const int failed = ::posix_spawnp(&process_, arguments[0], &actions, nullptr,
                                    const_cast<char* const*>(arguments), environ);
  ::posix_spawn_file_actions_destroy(&actions);
  ::close(ends[1]);
  char first = 0;  // of the address, which it prints when it listens
  const bool listens = failed == 0 && ::read(ends[0], &first, 1) == 1;
  ::close(ends[0]);
  if (!listens) throw std::runtime_error("dbus-daemon does not start: install the package dbus");
}

void PrivateBus::end() {
  if (process_ == 0) return;
  ::kill(process_, SIGKILL);
  ::waitpid(std::exchange(process_, 0), nullptr, 0);
  std::filesystem::remove(folder_.file("socket"));
}

}  // namespace kwtsdk::testing
