#include <algorithm>
#include <cstdarg>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "platform/opus/mp3_format.h"
#include "platform/opus/sound.h"

namespace kwtsdk::internal {

namespace {

constexpr int kQuality = 5;  // of 0, best, to 9, fastest: below this speech gains nothing that one hears

void beSilent(const char*, std::va_list) {}

constexpr std::size_t kFlushSize = 7200;  // what LAME may hold back

/// Room for what LAME makes of so many frames in the worst case.
std::size_t roomFor(std::size_t frames) { return frames + frames / 4 + kFlushSize; }

/// ID3v2.4 with the title in UTF-8; empty without one.
std::vector<std::uint8_t> tagOf(const std::string& title) {
  constexpr std::size_t frameHead = 10;
  if (title.empty()) return {};
  std::vector<std::uint8_t> tag;
  const auto add = [&tag](std::string_view bytes) { tag.insert(tag.end(), bytes.begin(), bytes.end()); };
  const auto addSize = [&tag](std::size_t size) {  // in bytes of seven bits
    for (int shift = 21; shift >= 0; shift -= 7)
      tag.push_back(static_cast<std::uint8_t>(size >> shift & 127U));
  };
  add({"ID3\4\0\0", 6});
  addSize(frameHead + 1 + title.size());
  add("TIT2");
  addSize(1 + title.size());
  add({"\0\0\3", 3});
  add(title);
  return tag;
}

class Mp3Writer : public SoundWriter {
 public:
  Mp3Writer(ByteSink& file, int sampleRate, int channels, int kilobitsPerSecond, const std::string& title);

  void write(std::span<const std::int16_t> samples) override;
  void settle() override;
  void finish() override;

 private:
  void append(int encoded);

  ByteSink& file_;
  const int channels_;
  const LameEncoder encoder_;
  const std::vector<std::uint8_t> tag_;
  InfoFrame info_;
  std::vector<std::uint8_t> encoded_;
};

Mp3Writer::Mp3Writer(ByteSink& file, int sampleRate, int channels, int kilobitsPerSecond,
                     const std::string& title)
    : file_(file),
      channels_(channels),
      encoder_(makeLameEncoder(sampleRate, channels, kilobitsPerSecond)),
      tag_(tagOf(title)) {
  info_.kilobitsPerSecond = kilobitsPerSecond;
  file_.append(std::vector<std::uint8_t>(tag_.size() + info_.size()));
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
  settle();
}

void Mp3Writer::settle() {
  info_.encoder = std::string("LAME").append(get_lame_short_version());
  info_.lowpass = lame_get_lowpassfreq(encoder_.get());
  info_.delay = lame_get_encoder_delay(encoder_.get());
  info_.padding = lame_get_encoder_padding(encoder_.get());
  auto beginning = tag_;
  const auto frame = info_.bytes();
  beginning.insert(beginning.end(), frame.begin(), frame.end());
  file_.overwriteBeginning(beginning);
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

}  // namespace

void checkMp3BitRate(std::int32_t kilobitsPerSecond) {
  if (opus::isMp3BitRate(kilobitsPerSecond)) return;
  std::string rates;
  for (const int rate : kMpegBitRates) {
    if (rate != kMpegBitRates.front()) rates += rate == kMpegBitRates.back() ? " or " : ", ";
    rates += std::to_string(rate);
  }
  throw ConversionFailure("MP3 has no bit rate of " + std::to_string(kilobitsPerSecond) + " kbit/s: use " +
                          rates + ".");
}

LameEncoder makeLameEncoder(int sampleRate, int channels, int kilobitsPerSecond) {
  LameEncoder encoder(lame_init());
  if (!encoder) throw std::bad_alloc();
  lame_set_errorf(encoder.get(), beSilent);
  lame_set_msgf(encoder.get(), beSilent);
  lame_set_debugf(encoder.get(), beSilent);
  lame_set_in_samplerate(encoder.get(), sampleRate);
  lame_set_num_channels(encoder.get(), channels);
  lame_set_out_samplerate(encoder.get(), kMp3SampleRate);
  lame_set_mode(encoder.get(), MONO);
  lame_set_VBR(encoder.get(), vbr_off);
  lame_set_brate(encoder.get(), kilobitsPerSecond);
  lame_set_quality(encoder.get(), kQuality);
  lame_set_write_id3tag_automatic(encoder.get(), 0);
  lame_set_bWriteVbrTag(encoder.get(), 0);  // it does not fit into frames of less than 40 kbit/s
  // Everything else is a setting that LAME knows.
  if (lame_init_params(encoder.get()) < 0) throw std::bad_alloc();
  return encoder;
}

std::unique_ptr<SoundWriter> openMp3Writer(ByteSink& file, int sampleRate, int channels,
                                           int kilobitsPerSecond, const std::string& title) {
  return std::make_unique<Mp3Writer>(file, sampleRate, channels, kilobitsPerSecond, title);
}

}  // namespace kwtsdk::internal
