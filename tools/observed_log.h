#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>

#include <kwtsdk/error.h>
#include <kwtsdk/log.h>

namespace kwtsdk::tool {

/// Passes lines on and shows them to an observer: of a download's later fate the library tells only its log.
class ObservedLog : public Log {
 public:
  using Observer = std::function<void(std::string_view line)>;

  explicit ObservedLog(std::shared_ptr<Log> next) : next_(std::move(next)) {}
  void write(LogLevel level, std::string_view line) override;

  /// Called on the library's threads; empty: none.
  void observe(Observer observer);

 private:
  const std::shared_ptr<Log> next_;
  std::mutex mutex_;
  Observer observer_;
};

/// An error as the library's log lines show it; none for "(null)".
MaybeError errorOfLogText(std::string_view text);

}  // namespace kwtsdk::tool
