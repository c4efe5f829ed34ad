#pragma once

#include <memory>
#include <string_view>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// Lines written once per packet are debug.
enum class LogLevel { debug, info, error };

class KWTSDK_EXPORT Log {
 public:
  virtual ~Log() = default;

  /// Called on any thread, several at a time; must return soon. `line` has no line feed at its end.
  virtual void write(LogLevel level, std::string_view line) = 0;
};

/// The platform's log, syslog(3) (POSIX.1-2017) with the facility LOG_USER: lines of at least the given
/// level.
KWTSDK_EXPORT std::shared_ptr<Log> systemLog(LogLevel least = LogLevel::info);

}  // namespace kwtsdk
