#pragma once

#include <memory>
#include <string_view>
#include <utility>

#include <kwtsdk/format_argument.h>
#include <kwtsdk/log.h>

#include "codec/text_format.h"

namespace kwtsdk::internal {

/// The host's log with printf-style lines. A log that throws loses the line and nothing else. A cheap copy.
class Logger {
 public:
  explicit Logger(std::shared_ptr<Log> log) : log_(std::move(log)) {}

  void debug(std::string_view line) const { write(LogLevel::debug, line); }
  template <class... Args>
  void info(std::string_view format, const Args&... args) const {
    write(LogLevel::info, formatText(format, {FormatArgument(args)...}));
  }
  template <class... Args>
  void error(std::string_view format, const Args&... args) const {
    write(LogLevel::error, formatText(format, {FormatArgument(args)...}));
  }

 private:
  void write(LogLevel level, std::string_view line) const noexcept {
    try {
      log_->write(level, line);
    } catch (...) {  // there is no other place to report to
    }
  }

  std::shared_ptr<Log> log_;
};

}  // namespace kwtsdk::internal
