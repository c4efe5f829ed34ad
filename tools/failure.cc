#include "tools/failure.h"

#include <algorithm>
#include <array>
#include <string_view>
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
constexpr const char* kLookAtList = "Look at the recordings with `kwt list`, then run the command again.";

// Codes below 5 are the recorder's answers to a deletion.
constexpr std::array<Explanation, 6> kExplanations{{
    {1, "The recorder did not delete the recording: it is not the first one", kLookAtList},
    {2, "The recorder did not delete the recording: it holds none of this id", kLookAtList},
    {3, "The recorder did not delete the recording: it is in use",
     "End recording and playback on the recorder, then delete it with `kwt rm`."},
    {4, "The recorder holds no recordings", "There is nothing to do."},
    {1004, "The recorder refused to start the recording",
     "End what it is doing, then run the command again."},
    {1006, "The recorder did not describe its first recording", "Run the command again."},
}};

struct Meaning {
  session::Errc code;
  ToolError error;
  const char* text;  // null: the session's own
  const char* hint;
};

constexpr std::array<Meaning, 8> kMeanings{{
    {session::Errc::cancelled, ToolError::interrupted, "Interrupted.", "Run the command again."},
    {session::Errc::linkLost, ToolError::connectionLost, "The connection to the recorder was lost.",
     "Bring the recorder into range, then run the command again."},
    {session::Errc::notARecorder, ToolError::noRecorder, nullptr,
     "Name the address of a recorder; `kwt scan` shows those in range."},
    {session::Errc::packetsTooSmall, ToolError::packetsTooSmall, nullptr,
     "Both ends have to agree on an ATT MTU of at least 99: use another Bluetooth adapter, or have the "
     "recorder's firmware updated."},
    {session::Errc::storeEmpty, ToolError::storeEmpty, "The recorder holds no recordings.",
     "Make one, then run the command again."},
    {session::Errc::notFirst, ToolError::other, "Another recording has become the recorder's first one.",
     kLookAtList},
    {session::Errc::noSuchRecording, ToolError::other,
     "The recorder's first recording has become another one.", kLookAtList},
    {session::Errc::fileUnusable, ToolError::fileUnusable, nullptr, "Name another file."},
}};

bool isAscii(std::string_view text) {
  return std::ranges::all_of(text, [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

/// Of an error whose words do not fit into an English sentence.
std::string detailOf(const Error& error) {
  const std::string description = error.localizedDescription();
  return isAscii(description) ? "" : description;
}

/// BlueZ's errors have no code, and name their domain themselves.
std::string withCode(const std::string& text, const Error& error) {
  const std::string description = error.localizedDescription();
  if (description.starts_with(error.domain())) return text + " (" + description + ").";
  if (description.empty() || !isAscii(description))
    return text + " (" + error.domain() + " " + std::to_string(error.code()) + ").";
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
    {bluez::Problem::noAdapter, "The Bluetooth adapter is missing",
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

ExitStatus statusOf(ToolError code) {
  switch (code) {
    case ToolError::noAnswer:
    case ToolError::connectionLost:
    case ToolError::stalled:
    case ToolError::incomplete:
    case ToolError::timeOver:
    case ToolError::notHeard:
      return ExitStatus::tryAgain;
    case ToolError::usage:
    case ToolError::notNamed:
      return ExitStatus::usage;
    default:
      return ExitStatus::failed;
  }
}

ExitStatus statusOf(const Error& error) {
  if (error.domain() != bluez::kDomain) return ExitStatus::failed;
  switch (static_cast<bluez::Problem>(error.code())) {
    case bluez::Problem::busUnreachable:
    case bluez::Problem::notPermitted:
    case bluez::Problem::serviceNotRunning:
    case bluez::Problem::noAdapter:
    case bluez::Problem::adapterOff:
      return ExitStatus::noBluetooth;
    case bluez::Problem::badArgument:
      return ExitStatus::failed;
    default:
      return ExitStatus::tryAgain;
  }
}

Failure inWords(const session::Failure& failure, Duration waited) {
  using session::Errc;
  if (failure == Errc::stalled || failure == Errc::timedOut) {
    return {ToolError::noAnswer,
            "The recorder did not answer within " + std::to_string(waited / std::chrono::seconds(1)) + " s.",
            kCheckRecorder};
  }
  if (failure.cause() && failure != Errc::linkLost && failure != Errc::cancelled)
    return explained(*failure.cause());
  const auto found = std::ranges::find(kMeanings, failure.code(), &Meaning::code);
  if (found == kMeanings.end()) return {ToolError::other, sentenceOf(failure), kCheckRecorder};
  return {found->error, found->text == nullptr ? sentenceOf(failure) : found->text, found->hint};
}

}  // namespace

Failure::Failure(ToolError code, const std::string& text, std::string hint)
    : std::runtime_error(text),
      domain_(kToolDomain),
      code_(static_cast<std::int64_t>(code)),
      hint_(std::move(hint)),
      status_(statusOf(code)) {}

Failure::Failure(const Error& error, const std::string& text, std::string hint)
    : std::runtime_error(withCode(text, error)),
      domain_(error.domain()),
      code_(error.code()),
      hint_(std::move(hint)),
      detail_(detailOf(error)),
      status_(statusOf(error)) {}

std::string sentenceOf(const session::Failure& failure) {
  constexpr std::string_view mark = ": ";
  const std::size_t end = failure.text().find(mark);
  std::string sentence = failure.text().substr(end == std::string::npos ? 0 : end + mark.size());
  if (sentence.starts_with("the ")) sentence[0] = 'T';
  return sentence;
}

Failure explained(const session::Failure& failure, Duration waited) {
  Failure known = inWords(failure, waited);
  if (failure.worthRetrying() && known.status() == ExitStatus::failed) known.setStatus(ExitStatus::tryAgain);
  return known;
}

Failure explained(const Error& error) {
  if (error.domain() == bluez::kDomain || error.domain().starts_with("org.")) return bluetoothFailure(error);
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
