#pragma once

#include <opus/opusfile.h>

#include <array>
#include <exception>
#include <memory>
#include <vector>

#include "platform/opus/audio_source.h"
#include "platform/opus/input_file.h"
#include "platform/opus/ogg_stream_decoder.h"

namespace kwtsdk::internal {

/// An Ogg Opus file, read from front to back without seeking: one that ends early is read to where it ends.
/// Later streams of a chained file are brought to the channels of the first.
class OggSource : public AudioSource {
 public:
  /// Throws ConversionFailure when the headers are damaged or not all there.
  explicit OggSource(InputFile& file);

  int sampleRate() const override { return 48000; }
  int channels() const override { return channels_; }
  std::size_t read(std::span<std::int16_t> room) override;
  std::uint64_t damagedPackets() const override { return damaged_; }

 private:
  static int readBytes(void* source, unsigned char* bytes, int size);
  static int decodePacket(void* source, OpusMSDecoder* unused, void* pcm, const ogg_packet* packet,
                          int frames, int channels, int format, int link);
  int readPacket(std::span<std::int16_t> room);

  struct Release {
    void operator()(OggOpusFile* file) const { op_free(file); }
  };

  InputFile& file_;
  std::exception_ptr failedRead_;
  OggStreamDecoder decoder_;
  std::unique_ptr<OggOpusFile, Release> opus_;
  int channels_ = 1;
  std::vector<float> pcm_;
  std::array<float, 2> clipping_{};  // how the last samples were limited
  std::uint64_t damaged_ = 0;
};

}  // namespace kwtsdk::internal
