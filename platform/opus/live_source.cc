#include <opus/opus.h>

#include <memory>
#include <new>
#include <utility>

#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

constexpr std::size_t kLongestPacketFrames = kLiveSampleRate / 1000 * 120;

/// At a stretch. Records without a packet have four bytes, and would become a thousand times as much silence.
constexpr std::size_t kMostConcealed = kLiveSampleRate;

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
  int lastFrames_ = 0;         // of the last good packet; 0: none yet
  std::size_t concealed_ = 0;  // frames since then
  bool afterGap_ = false;
  std::uint64_t damaged_ = 0;
};

LiveSource::LiveSource(InputFile& file, LivePacketReader::Kind kind)
    : packets_(file, kind), decoder_(opus_decoder_create(kLiveSampleRate, 1, nullptr)) {
  if (!decoder_) throw std::bad_alloc();
}

std::size_t LiveSource::read(std::span<std::int16_t> room) {
  std::size_t frames = 0;
  // A gap is concealed together with the packet behind it.
  while (room.size() - frames >= 2 * kLongestPacketFrames) {
    const auto item = packets_.next();
    if (!item) break;
    if (!item->isGap) {
      frames += takePacket(item->packet, room.subspan(frames));
      continue;
    }
    if (!afterGap_) ++damaged_;
    afterGap_ = true;
  }
  return frames;
}

std::size_t LiveSource::takePacket(std::span<const std::uint8_t> packet, std::span<std::int16_t> room) {
  std::size_t frames = 0;
  if (std::exchange(afterGap_, false)) frames += conceal(lastFrames_, room);
  const auto rest = room.subspan(frames);
  // Without bytes the decoder would conceal as much as there is room for.
  const int decoded = packet.empty()
                          ? OPUS_INVALID_PACKET
                          : opus_decode(decoder_.get(), packet.data(), static_cast<opus_int32>(packet.size()),
                                        rest.data(), static_cast<int>(kLongestPacketFrames), 0);
  if (decoded > 0) {
    lastFrames_ = decoded;
    concealed_ = 0;
    return frames + static_cast<std::size_t>(decoded);
  }
  ++damaged_;
  return frames + conceal(framesOf(packet), rest);
}

// Before the first good packet there is nothing to go on from.
std::size_t LiveSource::conceal(int frames, std::span<std::int16_t> room) {
  if (lastFrames_ == 0 || concealed_ >= kMostConcealed) return 0;
  const int concealed = opus_decode(decoder_.get(), nullptr, 0, room.data(), frames, 0);
  if (concealed <= 0) return 0;
  concealed_ += static_cast<std::size_t>(concealed);
  return static_cast<std::size_t>(concealed);
}

int LiveSource::framesOf(std::span<const std::uint8_t> packet) const {
  if (packet.empty()) return lastFrames_;
  const int frames =
      opus_packet_get_nb_samples(packet.data(), static_cast<opus_int32>(packet.size()), kLiveSampleRate);
  return frames > 0 ? frames : lastFrames_;
}

}  // namespace

std::unique_ptr<AudioSource> openLiveSource(InputFile& file, LivePacketReader::Kind kind) {
  return std::make_unique<LiveSource>(file, kind);
}

}  // namespace kwtsdk::internal
