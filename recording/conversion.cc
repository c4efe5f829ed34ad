#include "recording/conversion.h"

#include <kwtsdk/opus_convert_type.h>

#include "channel/host_call.h"

namespace kwtsdk::internal {

namespace {

constexpr std::int32_t kMp3Parameter = 24;

}  // namespace

bool Conversion::decodeOpusFile(const std::string& inputPath, const std::string& outputPath,
                                std::int64_t decodeType) {
  const auto converter = channel_.platform.opusConverter;
  if (!converter) return false;
  std::int32_t status = -1;
  guardedCall(channel_.log, "The Opus converter", [&] {
    status = decodeType == OpusConvertTypeWav
                 ? converter->opus2wav(inputPath.c_str(), outputPath.c_str())
                 : converter->opus2mp3(inputPath.c_str(), outputPath.c_str(), kMp3Parameter);
  });
  return status >= 0;
}

}  // namespace kwtsdk::internal
