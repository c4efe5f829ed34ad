#pragma once

#include <cstdint>

#include <kwtsdk/error.h>

namespace kwtsdk::bluez {

/// The domain of the errors that the adapter itself finds. An error that BlueZ or D-Bus answered with has its
/// D-Bus name as domain, such as "org.bluez.Error.NotPermitted", and code 0; its text begins with that name.
inline constexpr const char* kDomain = "com.kwt.bluez";

/// Codes in that domain.
enum class Problem : std::int64_t {
  busUnreachable = 1,     // no system bus
  notPermitted = 2,       // the bus refuses to pass anything on to BlueZ
  serviceNotRunning = 3,  // bluetoothd
  noAdapter = 4,          // none at all, or none of the name asked for
  adapterOff = 5,         // no power, or blocked
  deviceNotFound = 6,     // not heard within the time
  noConnection = 7,       // no connection within the time
  noServices = 8,         // its characteristics did not become known within the time
  connectionLost = 9,     // also: the adapter was removed, bluetoothd ended
  cancelled = 10,         // by disconnect()
  badArgument = 11,       // an address or a duration that makes no sense
  busFailure = 12,        // the system bus answered something else than it should
};

inline bool isProblem(const Error& error, Problem problem) {
  return error.domain() == kDomain && error.code() == static_cast<std::int64_t>(problem);
}

}  // namespace kwtsdk::bluez
