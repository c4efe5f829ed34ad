#pragma once

#include <exception>
#include <functional>
#include <memory>
#include <string_view>
#include <utility>

#include <kwtsdk/format_argument.h>
#include <kwtsdk/log.h>

#include "codec/text_format.h"

// Where the library calls what the host supplied: its log, its callbacks, its objects. Whatever that throws
// stops here.
namespace kwtsdk::internal {

/// The host's log with printf-style lines. A log that throws, or no memory for a line, loses the line and
/// nothing else: clean-ups log, too. A cheap copy.
class Logger {
 public:
  explicit Logger(std::shared_ptr<Log> log) : log_(std::move(log)) {}

  void debug(std::string_view line) const noexcept {
    write(LogLevel::debug, [&] { return line; });
  }
  template <class... Args>
  void info(std::string_view format, const Args&... args) const noexcept {
    write(LogLevel::info, [&] { return formatText(format, {FormatArgument(args)...}); });
  }
  template <class... Args>
  void error(std::string_view format, const Args&... args) const noexcept {
    write(LogLevel::error, [&] { return formatText(format, {FormatArgument(args)...}); });
  }

 private:
  template <class Line>
  void write(LogLevel level, const Line& line) const noexcept {
    try {
      log_->write(level, line());
    } catch (...) {  // there is no other place to report to
    }
  }

  std::shared_ptr<Log> log_;
};

/// Runs what the host supplied; an exception stops here and is logged. False when there was one.
template <class Call>
bool guardedCall(const Logger& log, const char* what, Call&& call) {
  try {
    std::forward<Call>(call)();
    return true;
  } catch (const std::exception& exception) {
    log.error("%@ threw: %@", what, exception.what());
  } catch (...) {
    log.error("%@ threw something that is no std::exception", what);
  }
  return false;
}

/// Calls a host's callback; an empty one is a no-op.
template <class... Parameters, class... Args>
void callHost(const Logger& log, const std::function<void(Parameters...)>& callback, Args&&... args) {
  if (callback) guardedCall(log, "A host callback", [&] { callback(std::forward<Args>(args)...); });
}

}  // namespace kwtsdk::internal
