#pragma once

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <sys/types.h>

#include "tests/support/temporary_folder.h"

namespace kwtsdk::testing {

/// A system bus of this process's own, for as long as this lives. Create it while there is one thread.
class PrivateBus {
 public:
  enum class Policy { open, noMessagesToBluez };

  explicit PrivateBus(Policy policy = Policy::open) {
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
  ~PrivateBus() { end(); }

  /// Start it again at the same address.
  void start() {
    const std::string command =
        "exec dbus-daemon --nofork --print-pid --config-file=" + folder_.file("conf") + " 2>/dev/null";
    output_ = ::popen(command.c_str(), "re");
    if (std::fscanf(output_, "%d", &process_) != 1)  // which it prints when it listens
      throw std::runtime_error("dbus-daemon does not start: install the package dbus");
  }

  void hang(bool on) const { ::kill(process_, on ? SIGSTOP : SIGCONT); }

  /// Kill it.
  void end() {
    if (output_ == nullptr) return;
    ::kill(process_, SIGKILL);
    ::pclose(std::exchange(output_, nullptr));
    std::filesystem::remove(folder_.file("socket"));
  }

 private:
  const TemporaryFolder folder_;
  std::FILE* output_ = nullptr;
  pid_t process_ = 0;
};

}  // namespace kwtsdk::testing
