#include "platform/opus/ogg_source.h"

#include "platform/opus/conversion_failure.h"
#include "platform/opus/sample_conversion.h"

namespace kwtsdk::internal {

namespace {

// Every error is reported once for each damaged page; this many without any sound mean that none follows.
constexpr int kMostErrorsInARow = 10000;
constexpr std::size_t kMostChannels = 8;  // that a later stream of a mono file may have

}  // namespace

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

}  // namespace kwtsdk::internal
