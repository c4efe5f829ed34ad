#include <opus/opus.h>

#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <new>
#include <optional>
#include <utility>
#include <vector>

#include "platform/opus/ogg_packets.h"
#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

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

class OggSource : public AudioSource {
 public:
  explicit OggSource(InputFile& file);

  int sampleRate() const override { return kOggSampleRate; }
  int channels() const override { return static_cast<int>(width_); }
  std::size_t read(std::span<std::int16_t> room) override;
  std::uint64_t damagedPackets() const override { return damaged_ + packets_.damagedPages(); }
  std::string title() const override { return packets_.title(); }

 private:
  void beginStream();
  std::optional<std::size_t> readItem(std::span<std::int16_t> room);
  int decode(std::span<const std::uint8_t> packet);
  int conceal(int frames);
  std::size_t give(int frames, std::span<std::int16_t> room);

  struct Release {
    void operator()(OpusDecoder* decoder) const { opus_decoder_destroy(decoder); }
  };

  OggPacketReader packets_;
  std::optional<OggPacketReader::Item> ahead_;
  std::unique_ptr<OpusDecoder, Release> decoder_;
  std::size_t width_ = 1;
  std::vector<float> pcm_;
  std::array<float, 2> clipping_{};  // how the last samples were limited
  std::uint64_t damaged_ = 0;

  // Of the stream, in samples of each channel.
  int lastFrames_ = 0;         // of the last packet; 0: none yet
  std::uint64_t lost_ = 0;     // still to be concealed
  std::int64_t position_ = 0;  // counted with those before its sound begins
  std::int64_t begin_ = 0;
  std::optional<std::int64_t> end_;
};

OggSource::OggSource(InputFile& file) : packets_(file) {
  if (!packets_.next()) throw damagedHeaders(file.path());
  ahead_ = packets_.next();  // behind the title
  width_ = packets_.header().channels == 1 ? 1 : 2;
  pcm_.resize(kLongestRead * width_);
  beginStream();
}

/// The decoder brings every stream to the channels of the first.
void OggSource::beginStream() {
  decoder_.reset(opus_decoder_create(kOggSampleRate, static_cast<int>(width_), nullptr));
  if (!decoder_ || opus_decoder_ctl(decoder_.get(), OPUS_SET_GAIN(packets_.header().gain)) != OPUS_OK) {
    throw std::bad_alloc();
  }
  lastFrames_ = 0;
  position_ = 0;
  begin_ = packets_.header().preSkip;
  end_.reset();
}

std::size_t OggSource::read(std::span<std::int16_t> room) {
  std::size_t used = 0;
  while (room.size() - used >= kLongestRead * width_) {
    const auto frames = readItem(room.subspan(used));
    if (!frames) break;
    used += *frames * width_;
  }
  return used / width_;
}

/// A packet, or as much as one of what is lost; none at the end.
std::optional<std::size_t> OggSource::readItem(std::span<std::int16_t> room) {
  if (lost_ > 0) {
    const int frames = conceal(static_cast<int>(std::min<std::uint64_t>(lost_, kLongestRead)));
    lost_ -= static_cast<std::uint64_t>(frames);
    return give(frames, room);
  }
  auto item = std::exchange(ahead_, std::nullopt);
  if (!item) item = packets_.next();
  if (!item) return std::nullopt;
  if (item->kind == OggPacketReader::Kind::header) beginStream();
  if (item->kind == OggPacketReader::Kind::lost) lost_ = item->samples;
  if (item->kind != OggPacketReader::Kind::packet) return 0;
  end_ = item->end;
  return give(decode(item->packet), room);
}

int OggSource::decode(std::span<const std::uint8_t> packet) {
  const auto size = static_cast<opus_int32>(packet.size());
  const int frames = packet.empty() ? 0 : opus_packet_get_nb_samples(packet.data(), size, kOggSampleRate);
  // Without bytes the decoder would conceal as much as there is room for.
  const int decoded = packet.empty() ? OPUS_INVALID_PACKET
                                     : opus_decode_float(decoder_.get(), packet.data(), size, pcm_.data(),
                                                         static_cast<int>(kLongestRead), 0);
  if (decoded > 0) return lastFrames_ = decoded;
  ++damaged_;
  return frames > 0 ? conceal(frames) : 0;
}

/// At most so many; of those that the decoder cannot make up, which come in steps of 2.5 ms, there is
/// silence.
int OggSource::conceal(int frames) {
  constexpr int step = kOggSampleRate / 400;
  const int most = lastFrames_ > 0 ? std::min(frames, lastFrames_) : frames;
  const int concealed = most / step * step;
  if (concealed > 0 && opus_decode_float(decoder_.get(), nullptr, 0, pcm_.data(), concealed, 0) == concealed)
    return concealed;
  std::fill_n(pcm_.begin(), static_cast<std::size_t>(most) * width_, 0.0F);
  return most;
}

/// The part that is sound: the stream's first and last packets may be longer.
std::size_t OggSource::give(int frames, std::span<std::int16_t> room) {
  const std::int64_t from = std::max(position_, begin_),
                     to = std::min(position_ + frames, end_.value_or(position_ + frames));
  const auto skipped = static_cast<std::size_t>(from - position_);
  position_ += frames;
  if (to <= from) return 0;
  const auto count = static_cast<std::size_t>(to - from);
  const auto sound = std::span(pcm_).subspan(skipped * width_, count * width_);
  opus_pcm_soft_clip(sound.data(), static_cast<int>(count), static_cast<int>(width_), clipping_.data());
  toSixteenBits(sound, room);
  return count;
}

}  // namespace

std::unique_ptr<AudioSource> openOggSource(InputFile& file) { return std::make_unique<OggSource>(file); }

}  // namespace kwtsdk::internal
