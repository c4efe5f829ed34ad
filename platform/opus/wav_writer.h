#pragma once

#include "platform/opus/converted_file.h"
#include "platform/opus/sound_writer.h"

namespace kwtsdk::internal {

/// RIFF/WAVE, 16-bit PCM.
class WavWriter : public SoundWriter {
 public:
  /// What the header's sizes can say.
  static constexpr std::uint64_t kLargest = 0xFFFFFFFF;

  WavWriter(ConvertedFile& file, int sampleRate, int channels, std::uint64_t largest = kLargest);

  void write(std::span<const std::int16_t> samples) override;
  void finish() override;

 private:
  ConvertedFile& file_;
  const int sampleRate_, channels_;
  const std::uint64_t largest_;
  std::uint64_t dataSize_ = 0;
};

}  // namespace kwtsdk::internal
