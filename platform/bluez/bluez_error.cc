#include "platform/bluez/bluez_error.h"

#include <sdbus-c++/Error.h>

#include <array>
#include <utility>

namespace kwtsdk::bluez {
namespace {

constexpr std::array<std::pair<Problem, const char*>, 12> kTexts{{
    {Problem::busUnreachable, "The system bus cannot be reached"},
    {Problem::notPermitted, "The system bus does not permit to use BlueZ"},
    {Problem::serviceNotRunning, "The Bluetooth service, bluetoothd, is not running"},
    {Problem::noAdapter, "There is no Bluetooth adapter"},
    {Problem::adapterOff, "Bluetooth is off"},
    {Problem::deviceNotFound, "The device was not found"},
    {Problem::noConnection, "The device did not accept the connection in time"},
    {Problem::noServices, "The device did not tell its characteristics in time"},
    {Problem::connectionLost, "The Bluetooth connection was lost"},
    {Problem::cancelled, "The connection attempt was cancelled"},
    {Problem::badArgument, "This makes no sense"},
    {Problem::busFailure, "The system bus failed"},
}};

Error errorWithText(const std::string& domain, std::int64_t code, const std::string& text) {
  return {domain, code, {{"NSLocalizedDescription", text}}};
}

std::string textOf(const sdbus::Error& error) {
  const std::string& name = error.getName();
  return error.getMessage().empty() ? name : name + ": " + error.getMessage();
}

bool isAccessRefusal(const std::string& name) {
  return name == "org.freedesktop.DBus.Error.AccessDenied" ||
         name == "org.freedesktop.DBus.Error.AuthFailed" || name == "System.Error.EACCES" ||
         name == "System.Error.EPERM";
}

/// systemd answers for a service that it could not start.
bool saysNotRunning(const std::string& name) {
  return name == "org.freedesktop.DBus.Error.ServiceUnknown" ||
         name == "org.freedesktop.DBus.Error.NameHasNoOwner" ||
         name.starts_with("org.freedesktop.DBus.Error.Spawn.") ||
         name.starts_with("org.freedesktop.systemd1.");
}

/// Also what the bus answers for a service that ended in the middle of a call.
bool saysGone(const std::string& name) {
  return name == "org.freedesktop.DBus.Error.NoReply" || name == "org.freedesktop.DBus.Error.Disconnected" ||
         name == "org.freedesktop.DBus.Error.UnknownObject" || name == "System.Error.ENOTCONN" ||
         name == "System.Error.ECONNRESET";
}

}  // namespace

BluezError::BluezError(Problem problem, const std::string& detail) : error_(errorOf(problem, detail)) {}

Error errorOf(Problem problem, const std::string& detail) {
  std::string text;
  for (const auto& [known, words] : kTexts) {
    if (known == problem) text = words;
  }
  return errorWithText(kDomain, static_cast<std::int64_t>(problem),
                       detail.empty() ? text : text + ": " + detail);
}

Error errorOf(const sdbus::Error& answer) {
  const std::string& name = answer.getName();
  if (isAccessRefusal(name)) return errorOf(Problem::notPermitted, textOf(answer));
  if (saysNotRunning(name)) return errorOf(Problem::serviceNotRunning, textOf(answer));
  if (saysGone(name)) return errorOf(Problem::connectionLost, textOf(answer));
  return errorWithText(name, 0, textOf(answer));
}

Error openingErrorOf(const sdbus::Error& failure) {
  return errorOf(isAccessRefusal(failure.getName()) ? Problem::notPermitted : Problem::busUnreachable,
                 textOf(failure));
}

}  // namespace kwtsdk::bluez
