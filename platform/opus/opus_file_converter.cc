#include <utility>

#include <kwtsdk/opus/conversion.h>
#include <kwtsdk/opus/opus_file_converter.h>

#include "platform/opus/conversion_request.h"

namespace kwtsdk::opus {

namespace {

class OpusFileConverter : public OpusConverter {
 public:
  explicit OpusFileConverter(std::shared_ptr<Log> log) : log_(std::move(log)) {}

  std::int32_t opus2wav(const char* inputPath, const char* outputPath) override {
    return run(inputPath, outputPath, Format::wav, 0);
  }

  std::int32_t opus2mp3(const char* inputPath, const char* outputPath, std::int32_t parameter) override {
    return run(inputPath, outputPath, Format::mp3, parameter);
  }

 private:
  std::int32_t run(const char* input, const char* output, Format format, std::int32_t parameter) try {
    if (input == nullptr || output == nullptr) {
      report(LogLevel::error, "A conversion needs the names of two files: one of them is null.");
      return ConversionResult::kFailed;
    }
    const ConversionResult result = convert(input, output, ConversionRequest{format, parameter, {}, false});
    if (result.status != ConversionResult::kConverted) {
      report(LogLevel::error, result.text);
    } else if (result.damagedPackets > 0) {
      report(LogLevel::info, std::string(input)
                                 .append(" is damaged; packets and gaps concealed or left out: ")
                                 .append(std::to_string(result.damagedPackets)));
    }
    return result.status;
  } catch (...) {
    return ConversionResult::kFailed;
  }

  void report(LogLevel level, std::string_view line) const {
    if (log_) log_->write(level, line);
  }

  const std::shared_ptr<Log> log_;
};

}  // namespace

std::shared_ptr<OpusConverter> opusFileConverter(std::shared_ptr<Log> log) {
  return std::make_shared<OpusFileConverter>(std::move(log));
}

}  // namespace kwtsdk::opus

/// What the library looks for when a host gave it no converter.
extern "C" KWTSDK_EXPORT void kwtsdkMakeOpusConverter(const std::shared_ptr<kwtsdk::Log>* log,
                                                      std::shared_ptr<kwtsdk::OpusConverter>* converter) {
  *converter = kwtsdk::opus::opusFileConverter(*log);
}
