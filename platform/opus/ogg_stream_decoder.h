#pragma once

#include <opus/opus.h>
#include <opus/opusfile.h>

#include <memory>

namespace kwtsdk::internal {

/// Decodes the packets of an Ogg Opus file in libopusfile's place. That would use the decoder for many
/// streams, which asks the processor for its features before every packet; in a virtual machine this takes
/// longer than the decoding.
class OggStreamDecoder {
 public:
  /// As op_decode_cb_func has it; leaves files of several streams to libopusfile.
  int decode(const OggOpusFile* file, const ogg_packet& packet, void* pcm, int frames, int channels,
             int format);

 private:
  bool prepare(opus_uint32 serialNumber, int channels, int gain);

  struct Release {
    void operator()(OpusDecoder* decoder) const { opus_decoder_destroy(decoder); }
  };

  std::unique_ptr<OpusDecoder, Release> decoder_;
  // Of the stream that the decoder is in.
  opus_uint32 serialNumber_ = 0;
  int channels_ = 0;
};

}  // namespace kwtsdk::internal
