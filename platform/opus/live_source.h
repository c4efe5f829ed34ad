#pragma once

#include <opus/opus.h>

#include <memory>

#include "platform/opus/audio_source.h"
#include "platform/opus/live_packet_reader.h"

namespace kwtsdk::internal {

constexpr int kLiveSampleRate = 16000;

/// A live recording. What is lost the decoder conceals, so that the rest keeps its time.
class LiveSource : public AudioSource {
 public:
  LiveSource(InputFile& file, LivePacketReader::Kind kind);

  int sampleRate() const override { return kLiveSampleRate; }
  int channels() const override { return 1; }
  std::size_t read(std::span<std::int16_t> room) override;
  std::uint64_t damagedPackets() const override { return damaged_; }

 private:
  std::size_t takePacket(std::span<const std::uint8_t> packet, std::span<std::int16_t> room);
  std::size_t conceal(int frames, std::span<std::int16_t> room);
  int framesOf(std::span<const std::uint8_t> packet) const;

  struct Release {
    void operator()(OpusDecoder* decoder) const { opus_decoder_destroy(decoder); }
  };

  LivePacketReader packets_;
  std::unique_ptr<OpusDecoder, Release> decoder_;
  int lastFrames_ = 0;  // of the last good packet; 0: none yet
  bool afterGap_ = false;
  std::uint64_t damaged_ = 0;
};

}  // namespace kwtsdk::internal
