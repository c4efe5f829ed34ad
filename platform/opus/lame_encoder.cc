#include "platform/opus/lame_encoder.h"

#include <algorithm>
#include <cstdarg>
#include <new>

#include "platform/opus/mpeg_frame.h"

namespace kwtsdk::internal {

namespace {

constexpr int kQuality = 5;  // of 0, best, to 9, fastest: below this speech gains nothing that one hears

void beSilent(const char*, std::va_list) {}

}  // namespace

bool isMp3BitRate(std::int32_t kilobitsPerSecond) {
  return std::find(kMpegBitRates.begin(), kMpegBitRates.end(), kilobitsPerSecond) != kMpegBitRates.end();
}

std::string mp3BitRates() {
  std::string rates;
  for (const int rate : kMpegBitRates) {
    if (rate != kMpegBitRates.front()) rates += rate == kMpegBitRates.back() ? " or " : ", ";
    rates += std::to_string(rate);
  }
  return rates;
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

}  // namespace kwtsdk::internal
