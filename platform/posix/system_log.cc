#include <syslog.h>

#include <kwtsdk/log.h>

namespace kwtsdk {
namespace {

class SystemLog : public Log {
 public:
  explicit SystemLog(LogLevel least) : least_(least) {}

  void write(LogLevel level, std::string_view line) override {
    if (level < least_) return;
    ::syslog(LOG_USER | priority(level), "kwtsdk: %.*s", static_cast<int>(line.size()), line.data());
  }

 private:
  static int priority(LogLevel level) {
    switch (level) {
      case LogLevel::debug:
        return LOG_DEBUG;
      case LogLevel::info:
        return LOG_INFO;
      case LogLevel::error:
        break;
    }
    return LOG_ERR;
  }

  LogLevel least_;
};

}  // namespace

std::shared_ptr<Log> systemLog(LogLevel least) { return std::make_shared<SystemLog>(least); }

}  // namespace kwtsdk
