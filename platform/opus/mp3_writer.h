#pragma once

#include <vector>

#include "platform/opus/converted_file.h"
#include "platform/opus/info_frame.h"
#include "platform/opus/lame_encoder.h"
#include "platform/opus/sound_writer.h"

namespace kwtsdk::internal {

/// MP3, mono: stereo sound is mixed.
class Mp3Writer : public SoundWriter {
 public:
  Mp3Writer(ConvertedFile& file, int sampleRate, int channels, int kilobitsPerSecond);

  void write(std::span<const std::int16_t> samples) override;
  void finish() override;

 private:
  void append(int encoded);

  ConvertedFile& file_;
  const int channels_;
  const LameEncoder encoder_;
  InfoFrame info_;
  std::vector<std::uint8_t> encoded_;
};

}  // namespace kwtsdk::internal
