#pragma once

#include <string>
#include <vector>

#include <kwtsdk/bluez/scanner.h>

#include "tools/recorder.h"

namespace kwtsdk::tool {

/// The Bluetooth address of the recorder that a command is for: the one that --device, KWT_DEVICE or the
/// configuration names, by address or by a name that is heard, or else the only one in range. Listens for as
/// long as that takes. Throws a Failure when there is none, or more than one.
std::string chosenRecorder(const Environment& environment);

/// Who named it: "--device", "KWT_DEVICE", a file, or "" when nobody has.
struct NamedRecorder {
  std::string name, by;
};
NamedRecorder namedRecorder(const Environment& environment);

/// Listens so long for recorders, or with `all` for every device.
bluez::ScanResult listened(const Environment& environment, Duration time, bool all);

/// The explanation of a scan's error.
Failure scanFailure(const Error& error);

}  // namespace kwtsdk::tool
