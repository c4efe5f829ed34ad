#include "tools/bluetooth_failure.h"

#include <algorithm>
#include <array>

#include <kwtsdk/bluez/problem.h>

namespace kwtsdk::tool {
namespace {

using bluez::Problem;

struct Advice {
  Problem problem;
  const char* text;
  const char* hint;
};

constexpr const char* kFindRecorder =
    "Check that the recorder is switched on, in range and not connected to another host, then run the "
    "command again; `kwt scan` shows what is in range.";

constexpr std::array<Advice, 9> kAdvice{{
    {Problem::busUnreachable, "Bluetooth cannot be reached: there is no system bus",
     "Start it with `sudo systemctl start dbus`, then run the command again."},
    {Problem::notPermitted, "This user may not use Bluetooth",
     "Join the group bluetooth with `sudo usermod -aG bluetooth $USER` and log in again, or have "
     "/etc/dbus-1/system.d/bluetooth.conf allow send_destination=\"org.bluez\"."},
    {Problem::serviceNotRunning, "The Bluetooth service, bluetoothd, is not running",
     "Start it with `sudo systemctl start bluetooth` (Debian package bluez), then run the command again."},
    {Problem::noAdapter, "This machine has no Bluetooth adapter",
     "Plug one in, then run the command again; `bluetoothctl list` shows those that work."},
    {Problem::adapterOff, "Bluetooth is off",
     "Switch it on with `bluetoothctl power on`, after `rfkill unblock bluetooth` if that is refused, then "
     "run the command again."},
    {Problem::deviceNotFound, "The recorder was not found", kFindRecorder},
    {Problem::noConnection, "The recorder did not accept the connection", kFindRecorder},
    {Problem::noServices, "The recorder accepted the connection, but did not say what it can do",
     "Switch it off and on, then run the command again."},
    {Problem::connectionLost, "The Bluetooth connection was lost",
     "Run the command again; a download continues where it ended."},
}};

}  // namespace

Failure bluetoothFailure(const Error& error) {
  const auto found =
      std::ranges::find_if(kAdvice, [&](const Advice& advice) { return isProblem(error, advice.problem); });
  if (found != kAdvice.end()) return {error, found->text, found->hint};
  return {
      error, "Bluetooth reported an error",
      "Check that the recorder is switched on and in range, then run the command again; if it comes back, "
      "`sudo systemctl restart bluetooth` may help."};
}

}  // namespace kwtsdk::tool
