#include <opus/opus.h>
#include <opus/opusfile.h>

#include <algorithm>
#include <array>
#include <bit>
#include <exception>
#include <memory>
#include <numeric>
#include <vector>

#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

// Every error is reported once for each damaged page; this many without any sound mean that none follows.
constexpr int kMostErrorsInARow = 10000;
constexpr std::size_t kMostChannels = 8;  // that a later stream of a mono file may have

/// Rounds samples of -1 to 1 to 16 bits; louder ones are cut off. `to` has room for as many.
void toSixteenBits(std::span<const float> from, std::span<std::int16_t> to) {
  constexpr float scale = 32768, least = -32768, most = 32767;
  // Added to a sample it leaves the rounded value in the lowest bits. Rounding functions are calls, which
  // cannot be made for several samples at once.
  constexpr float rounder = 12582912;  // 1.5 * 2^23
  constexpr auto rounderBits = std::bit_cast<std::int32_t>(rounder);
  const float* const in = from.data();
  std::int16_t* const out = to.data();
  for (std::size_t i = 0; i < from.size(); ++i) {
    const float limited = std::min(std::max(in[i] * scale, least), most);
    out[i] = static_cast<std::int16_t>(std::bit_cast<std::int32_t>(limited + rounder) - rounderBits);
  }
}

/// Averages the channels; returns the part of `samples` that holds the result.
std::span<float> mixToMono(std::span<float> samples, std::size_t channels) {
  const std::size_t frames = samples.size() / channels;
  for (std::size_t frame = 0; frame < frames; ++frame) {
    const auto all = samples.subspan(frame * channels, channels);
    samples[frame] = std::accumulate(all.begin(), all.end(), 0.0F) / static_cast<float>(channels);
  }
  return samples.first(frames);
}

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

class OggSource : public AudioSource {
 public:
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

OggSource::OggSource(InputFile& file) : file_(file), pcm_(kLongestRead * kMostChannels) {
  constexpr OpusFileCallbacks frontToBack{&OggSource::readBytes, nullptr, nullptr, nullptr};
  opus_.reset(op_open_callbacks(this, &frontToBack, nullptr, 0, nullptr));
  if (failedRead_) std::rethrow_exception(failedRead_);
  if (!opus_) {
    throw ConversionFailure(file.path() +
                            " is Ogg Opus, but its headers are damaged or incomplete: download it again.");
  }
  channels_ = op_channel_count(opus_.get(), -1) == 1 ? 1 : 2;
  op_set_decode_callback(opus_.get(), &OggSource::decodePacket, this);
}

int OggSource::readBytes(void* source, unsigned char* bytes, int size) {
  auto& self = *static_cast<OggSource*>(source);
  try {
    return static_cast<int>(self.file_.read({bytes, static_cast<std::size_t>(size)}));
  } catch (...) {
    self.failedRead_ = std::current_exception();
    return -1;
  }
}

int OggSource::decodePacket(void* source, OpusMSDecoder* /*unused*/, void* pcm, const ogg_packet* packet,
                            int frames, int channels, int format, int /*link*/) {
  auto& self = *static_cast<OggSource*>(source);
  return self.decoder_.decode(self.opus_.get(), *packet, pcm, frames, channels, format);
}

std::size_t OggSource::read(std::span<std::int16_t> room) {
  const auto width = static_cast<std::size_t>(channels_);
  std::size_t used = 0;
  int errors = 0;
  while (room.size() - used >= kLongestRead * width && errors < kMostErrorsInARow) {
    const int frames = readPacket(room.subspan(used));
    if (failedRead_) std::rethrow_exception(failedRead_);
    if (frames == 0) break;
    if (frames > 0) {
      used += static_cast<std::size_t>(frames) * width;
      errors = 0;
    } else {
      ++damaged_;
      ++errors;
    }
  }
  return used / width;
}

// As numbers with a fraction: libopusfile's own way to 16 bits is much slower.
int OggSource::readPacket(std::span<std::int16_t> room) {
  const int size = static_cast<int>(pcm_.size());
  const int frames = channels_ == 2 ? op_read_float_stereo(opus_.get(), pcm_.data(), size)
                                    : op_read_float(opus_.get(), pcm_.data(), size, nullptr);
  if (frames <= 0) return frames;
  const int width = channels_ == 2 ? 2 : op_channel_count(opus_.get(), -1);
  auto sound = std::span(pcm_).first(static_cast<std::size_t>(frames) * static_cast<std::size_t>(width));
  if (width > channels_) sound = mixToMono(sound, static_cast<std::size_t>(width));
  opus_pcm_soft_clip(sound.data(), frames, channels_, clipping_.data());
  toSixteenBits(sound, room);
  return frames;
}

}  // namespace

std::unique_ptr<AudioSource> openOggSource(InputFile& file) { return std::make_unique<OggSource>(file); }

}  // namespace kwtsdk::internal
