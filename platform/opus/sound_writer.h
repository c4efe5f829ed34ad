#pragma once

#include <cstdint>
#include <span>

namespace kwtsdk::internal {

/// Writes sound into a ConvertedFile in one format. Throws ConversionFailure.
class SoundWriter {
 public:
  virtual ~SoundWriter() = default;
  /// Interleaved samples of whole frames.
  virtual void write(std::span<const std::int16_t> samples) = 0;
  /// After the last sample; the file is complete then.
  virtual void finish() = 0;
};

}  // namespace kwtsdk::internal
