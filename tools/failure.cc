#include "tools/failure.h"

#include <algorithm>
#include <array>
#include <utility>

#include <kwtsdk/bluez/problem.h>

namespace kwtsdk::tool {
namespace {

constexpr const char* kToolDomain = "kwt";

struct Explanation {
  std::int64_t code;
  const char* text;
  const char* hint;
};

constexpr const char* kCheckRecorder =
    "Check that the recorder is switched on and in range, then run the command again.";
constexpr const char* kRunAgain = "Run the command again.";

// Codes below 5 are the recorder's answers to a deletion.
constexpr std::array<Explanation, 10> kExplanations{{
    {1, "The recorder did not delete the recording: it is not the first one",
     "Look at the recordings with `kwt list`, then run the command again."},
    {2, "The recorder did not delete the recording: it holds none of this id",
     "Look at the recordings with `kwt list`, then run the command again."},
    {3, "The recorder did not delete the recording: it is in use",
     "End recording and playback on the recorder, then delete it with `kwt rm`."},
    {4, "The recorder holds no recordings", "There is nothing to do."},
    {1001, "The recorder is not connected, or lacks what this command needs", kCheckRecorder},
    {1002, "Another command is under way", kRunAgain},
    {1004, "The recorder refused to start the recording",
     "End what it is doing, then run the command again."},
    {1005, "The recorder named no first recording: it holds none, or it did not answer",
     "Look at the recordings with `kwt list`."},
    {1006, "The recorder did not describe its first recording", kRunAgain},
    {kLongerThanRecording, "The file is longer than the recorder's first recording",
     "Name another file, or none, with -o."},
}};

/// BlueZ's errors have no code, and name their domain themselves.
std::string withCode(const std::string& text, const Error& error) {
  const std::string description = error.localizedDescription();
  if (description.starts_with(error.domain())) return text + " (" + description + ").";
  return text + " (" + error.domain() + " " + std::to_string(error.code()) + ": " + description + ").";
}

struct Advice {
  bluez::Problem problem;
  const char* text;
  const char* hint;
};

constexpr const char* kFindRecorder =
    "Check that the recorder is switched on, in range and not connected to another host, then run the "
    "command again; `kwt scan` shows what is in range.";

constexpr std::array<Advice, 9> kAdvice{{
    {bluez::Problem::busUnreachable, "Bluetooth cannot be reached: there is no system bus",
     "Start it with `sudo systemctl start dbus`, then run the command again."},
    {bluez::Problem::notPermitted, "This user may not use Bluetooth",
     "Join the group bluetooth with `sudo usermod -aG bluetooth $USER` and log in again, or have "
     "/etc/dbus-1/system.d/bluetooth.conf allow send_destination=\"org.bluez\"."},
    {bluez::Problem::serviceNotRunning, "The Bluetooth service, bluetoothd, is not running",
     "Start it with `sudo systemctl start bluetooth` (Debian package bluez), then run the command again."},
    {bluez::Problem::noAdapter, "This machine has no Bluetooth adapter",
     "Plug one in, then run the command again; `bluetoothctl list` shows those that work."},
    {bluez::Problem::adapterOff, "Bluetooth is off",
     "Switch it on with `bluetoothctl power on`, after `rfkill unblock bluetooth` if that is refused, then "
     "run the command again."},
    {bluez::Problem::deviceNotFound, "The recorder was not found", kFindRecorder},
    {bluez::Problem::noConnection, "The recorder did not accept the connection", kFindRecorder},
    {bluez::Problem::noServices, "The recorder accepted the connection, but did not say what it can do",
     "Switch it off and on, then run the command again."},
    {bluez::Problem::connectionLost, "The Bluetooth connection was lost",
     "Run the command again; a download continues where it ended."},
}};

}  // namespace

Failure::Failure(ToolError code, const std::string& text, std::string hint)
    : std::runtime_error(text),
      domain_(kToolDomain),
      code_(static_cast<std::int64_t>(code)),
      hint_(std::move(hint)) {}

Failure::Failure(const Error& error, const std::string& text, std::string hint)
    : std::runtime_error(withCode(text, error)),
      domain_(error.domain()),
      code_(error.code()),
      hint_(std::move(hint)) {}

bool Failure::is(ToolError code) const {
  return domain_ == kToolDomain && code_ == static_cast<std::int64_t>(code);
}

Failure explained(const Error& error) {
  if (error.domain() == bluez::kDomain) return bluetoothFailure(error);
  const auto found =
      std::ranges::find_if(kExplanations, [&](const auto& known) { return known.code == error.code(); });
  if (error.domain() == kLibraryDomain && found != kExplanations.end())
    return {error, found->text, found->hint};
  return {error, "The recorder reported an error", kCheckRecorder};
}

Failure bluetoothFailure(const Error& error) {
  const auto found =
      std::ranges::find_if(kAdvice, [&](const auto& advice) { return isProblem(error, advice.problem); });
  if (found != kAdvice.end()) return {error, found->text, found->hint};
  return {
      error, "Bluetooth reported an error",
      "Check that the recorder is switched on and in range, then run the command again; if it comes back, "
      "`sudo systemctl restart bluetooth` may help."};
}

}  // namespace kwtsdk::tool
