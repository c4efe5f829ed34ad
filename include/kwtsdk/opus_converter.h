#pragma once

#include <cstdint>

#include <kwtsdk/export.h>

namespace kwtsdk {

/// Converts recorded Opus files. A status of 0 or more is success, a negative one failure. Runs on the thread
/// that asked for the conversion and blocks it. The parameter of opus2mp3 is the bit rate in kbit/s; the
/// library gives 24. opus::opusFileConverter() is one.
class KWTSDK_EXPORT OpusConverter {
 public:
  virtual ~OpusConverter() = default;
  virtual std::int32_t opus2wav(const char* inputPath, const char* outputPath) = 0;
  virtual std::int32_t opus2mp3(const char* inputPath, const char* outputPath, std::int32_t parameter) = 0;
};

}  // namespace kwtsdk
