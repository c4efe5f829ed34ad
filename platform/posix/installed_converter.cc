#include "platform/posix/installed_converter.h"

#include <dlfcn.h>

#include <string>
#include <utility>

#include "platform/threads/mutex.h"

namespace kwtsdk::internal {

namespace {

using MakeConverter = void(const std::shared_ptr<Log>*, std::shared_ptr<OpusConverter>*);

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
    const MutexLock lock(mutex_);
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

  Mutex mutex_;
  const std::shared_ptr<Log> log_;
  std::shared_ptr<OpusConverter> converter_ KWT_GUARDED_BY(mutex_);
};

}  // namespace

std::shared_ptr<OpusConverter> installedConverter(std::shared_ptr<Log> log) {
  return std::make_shared<InstalledConverter>(std::move(log));
}

}  // namespace kwtsdk::internal
