#include "platform/opus/mp3_writer.h"

#include <new>

#include "platform/opus/conversion_failure.h"

namespace kwtsdk::internal {

namespace {

constexpr std::size_t kFlushSize = 7200;  // what LAME may hold back

/// Room for what LAME makes of so many frames in the worst case.
std::size_t roomFor(std::size_t frames) { return frames + frames / 4 + kFlushSize; }

}  // namespace

Mp3Writer::Mp3Writer(ConvertedFile& file, int sampleRate, int channels, int kilobitsPerSecond)
    : file_(file), channels_(channels), encoder_(makeLameEncoder(sampleRate, channels, kilobitsPerSecond)) {
  info_.kilobitsPerSecond = kilobitsPerSecond;
  file_.append(std::vector<std::uint8_t>(info_.size()));
}

void Mp3Writer::write(std::span<const std::int16_t> samples) {
  const std::size_t frames = samples.size() / static_cast<std::size_t>(channels_);
  encoded_.resize(roomFor(frames));
  // LAME takes no const, but does not write.
  auto* const pcm = const_cast<std::int16_t*>(samples.data());
  const int size = static_cast<int>(encoded_.size());
  append(channels_ == 1
             ? lame_encode_buffer(encoder_.get(), pcm, pcm, static_cast<int>(frames), encoded_.data(), size)
             : lame_encode_buffer_interleaved(encoder_.get(), pcm, static_cast<int>(frames), encoded_.data(),
                                              size));
}

void Mp3Writer::finish() {
  encoded_.resize(kFlushSize);
  append(lame_encode_flush(encoder_.get(), encoded_.data(), static_cast<int>(encoded_.size())));
  info_.encoder = std::string("LAME").append(get_lame_short_version());
  info_.lowpass = lame_get_lowpassfreq(encoder_.get());
  info_.delay = lame_get_encoder_delay(encoder_.get());
  info_.padding = lame_get_encoder_padding(encoder_.get());
  file_.overwriteBeginning(info_.bytes());
}

void Mp3Writer::append(int encoded) {
  constexpr int outOfMemory = -2;
  if (encoded == outOfMemory) throw std::bad_alloc();
  if (encoded < 0) {
    throw ConversionFailure(file_.path() + " cannot be encoded (LAME error " + std::to_string(encoded) +
                            "): convert to WAV instead.");
  }
  const auto bytes = std::span(encoded_).first(static_cast<std::size_t>(encoded));
  info_.musicSize += bytes.size();
  info_.musicCrc = crc16(info_.musicCrc, bytes);
  file_.append(bytes);
}

}  // namespace kwtsdk::internal
