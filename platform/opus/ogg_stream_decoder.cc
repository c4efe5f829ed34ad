#include "platform/opus/ogg_stream_decoder.h"

namespace kwtsdk::internal {

int OggStreamDecoder::decode(const OggOpusFile* file, const ogg_packet& packet, void* pcm, int frames,
                             int channels, int format) {
  const OpusHead* const head = op_head(file, -1);
  if (head == nullptr || head->mapping_family != 0 || format != OP_DEC_FORMAT_FLOAT)
    return OP_DEC_USE_DEFAULT;
  if (!prepare(op_serialno(file, -1), channels, head->output_gain)) return OP_EFAULT;
  const int decoded = opus_decode_float(decoder_.get(), packet.packet, static_cast<opus_int32>(packet.bytes),
                                        static_cast<float*>(pcm), frames, 0);
  return decoded == frames ? 0 : OP_EBADPACKET;
}

bool OggStreamDecoder::prepare(opus_uint32 serialNumber, int channels, int gain) {
  if (decoder_ && serialNumber == serialNumber_ && channels == channels_) return true;
  constexpr int sampleRate = 48000;
  decoder_.reset(opus_decoder_create(sampleRate, channels, nullptr));
  serialNumber_ = serialNumber;
  channels_ = channels;
  return decoder_ && opus_decoder_ctl(decoder_.get(), OPUS_SET_GAIN(gain)) == OPUS_OK;
}

}  // namespace kwtsdk::internal
