#include "platform/posix/platform_defaults.h"

#include <dlfcn.h>
#include <pwd.h>
#include <syslog.h>
#include <unistd.h>

#include <array>
#include <string>
#include <utility>

#include "platform/threads/mutex.h"

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

  const LogLevel least_;
};

using MakeConverter = void(const std::shared_ptr<Log>*, std::shared_ptr<OpusConverter>*);

/// The converter of libkwtsdk_opus, which is loaded at the first conversion: the library itself needs no
/// codec. Where it is not installed every conversion fails, with a line in the log.
class InstalledConverter : public OpusConverter {
 public:
  explicit InstalledConverter(std::shared_ptr<Log> log) : log_(std::move(log)) {}

  std::int32_t opus2wav(const char* inputPath, const char* outputPath) override {
    const auto converter = loaded();
    return converter ? converter->opus2wav(inputPath, outputPath) : kFailed;
  }

  std::int32_t opus2mp3(const char* inputPath, const char* outputPath, std::int32_t parameter) override {
    const auto converter = loaded();
    return converter ? converter->opus2mp3(inputPath, outputPath, parameter) : kFailed;
  }

 private:
  static constexpr std::int32_t kFailed = -1;

  /// Null where there is none; the next conversion looks again.
  std::shared_ptr<OpusConverter> loaded() {
    const internal::MutexLock lock(mutex_);
    if (converter_) return converter_;
    // Never closed: the converter's code has to outlive whoever holds it.
    void* const library = ::dlopen(KWTSDK_OPUS_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* const symbol = library == nullptr ? nullptr : ::dlsym(library, "kwtsdkMakeOpusConverter");
    if (symbol == nullptr) {
      reportMissing(::dlerror());
      return nullptr;
    }
    reinterpret_cast<MakeConverter*>(symbol)(&log_, &converter_);
    return converter_;
  }

  void reportMissing(const char* reason) const {
    log_->write(LogLevel::error,
                std::string("There is no Opus converter (")
                    .append(reason)
                    .append("): install " KWTSDK_OPUS_LIBRARY
                            " beside the library, or link kwtsdk::opus and set Platform::opusConverter."));
  }

  const std::shared_ptr<Log> log_;
  internal::Mutex mutex_;
  std::shared_ptr<OpusConverter> converter_ KWT_GUARDED_BY(mutex_);
};

std::string homeDirectory() {
  std::array<char, 4096> buffer{};
  passwd entry{};
  passwd* found = nullptr;
  ::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &found);
  return found == nullptr ? std::string("/tmp") : std::string(found->pw_dir);
}

}  // namespace

std::shared_ptr<Log> systemLog(LogLevel least) { return std::make_shared<SystemLog>(least); }

namespace internal {

Platform withDefaults(Platform platform) {
  if (!platform.scheduler) platform.scheduler = threadScheduler();
  if (!platform.settings) platform.settings = fileSettings(homeDirectory() + "/.local/state/kwtsdk/settings");
  if (!platform.log) platform.log = systemLog();
  if (!platform.opusConverter) platform.opusConverter = std::make_shared<InstalledConverter>(platform.log);
  return platform;
}

}  // namespace internal
}  // namespace kwtsdk
