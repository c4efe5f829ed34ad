#include "bench/speech.h"

#include <ogg/ogg.h>

#include <array>
#include <cmath>
#include <cstring>
#include <fstream>
#include <numbers>

#include "sim/samples/microphones.h"

namespace kwtsdk::bench {
namespace {

constexpr std::size_t kPacketsPerMinute = 60 * 50;

double noise() {
  static std::uint32_t state = 1;
  state = state * 1664525 + 1013904223;
  return static_cast<double>(state >> 8) / (1 << 23) - 1;
}

/// Harmonics of the voice, louder where the vowel's formants are.
double vowel(double cycles, double pitch, double formant) {
  double sum = 0;
  for (int harmonic = 1; harmonic <= 16; ++harmonic) {
    const double distance = (harmonic * pitch - formant) / 300;
    sum += (std::exp(-distance * distance) + 0.3 / harmonic) *
           std::sin(2 * std::numbers::pi * harmonic * cycles);
  }
  return sum / 3;
}

sim::Samples speech() {
  sim::Samples samples(60 * sim::kSampleRate);
  double cycles = 0;
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double time = static_cast<double>(i) / sim::kSampleRate, syllable = std::floor(time * 4);
    const double within = time * 4 - syllable, pitch = 120 + 30 * std::sin(time * 1.7);
    cycles += pitch / sim::kSampleRate;
    double level = 0.002 * noise();  // a room
    if (std::fmod(syllable, 9) < 7) {
      level += within < 0.25 ? 0.1 * noise()
                             : std::sin(std::numbers::pi * within) *
                                   vowel(cycles, pitch, 500 + 250 * std::fmod(syllable, 5));
    }
    samples[i] = static_cast<std::int16_t>(std::lround(12000 * std::fmin(1, std::fmax(-1, level))));
  }
  return samples;
}

class OggFile {
 public:
  explicit OggFile(const std::string& path) : file_(path, std::ios::binary) { ogg_stream_init(&stream_, 1); }
  ~OggFile() { ogg_stream_clear(&stream_); }
  OggFile(const OggFile&) = delete;
  OggFile& operator=(const OggFile&) = delete;

  void add(const Bytes& content, ogg_int64_t position, bool last) {
    Bytes copy = content;
    ogg_packet packet{copy.data(), static_cast<long>(copy.size()), number_ == 0, last, position, number_};
    ++number_;
    ogg_stream_packetin(&stream_, &packet);
    const bool header = number_ <= 2;  // alone on its page
    ogg_page page{};
    while ((header || last ? ogg_stream_flush(&stream_, &page) : ogg_stream_pageout(&stream_, &page)) != 0) {
      write(page.header, page.header_len);
      write(page.body, page.body_len);
    }
  }

 private:
  void write(const unsigned char* bytes, long size) {
    file_.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
  }

  std::ofstream file_;
  ogg_stream_state stream_{};
  ogg_int64_t number_ = 0;
};

Bytes bytesOf(const char* text, std::size_t size) { return {text, text + size}; }

}  // namespace

const std::vector<Bytes>& speechPackets() {
  static const std::vector<Bytes> packets = [] {
    const auto microphone = sim::opusMicrophone(speech(), sim::kSampleRate);
    microphone->start();
    std::vector<Bytes> made;
    while (made.size() < kPacketsPerMinute) made.push_back(microphone->nextPacket());
    return made;
  }();
  return packets;
}

void writeLiveRecording(const std::string& path, std::size_t packets) {
  std::ofstream file(path, std::ios::binary);
  for (std::size_t i = 0; i < packets; ++i) {
    const Bytes& packet = speechPackets()[i % kPacketsPerMinute];
    const std::array<char, 4> head{0x50, 0x01, static_cast<char>(packet.size()),
                                   static_cast<char>(packet.size() >> 8)};
    file.write(head.data(), head.size());
    file.write(reinterpret_cast<const char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
  }
}

void writeOggOpus(const std::string& path, std::size_t packets) {
  constexpr ogg_int64_t kFrames = 960, kPreSkip = 312;  // of 48 kHz, whatever the sound was
  constexpr char kHead[] = "OpusHead\x01\x01\x38\x01\x80\x3E\x00\x00\x00\x00";
  constexpr char kTags[] = "OpusTags\x00\x00\x00\x00\x00\x00\x00\x00";
  OggFile file(path);
  file.add(bytesOf(kHead, sizeof kHead), 0, false);
  file.add(bytesOf(kTags, sizeof kTags - 1), 0, false);
  for (std::size_t i = 0; i < packets; ++i) {
    const auto position = static_cast<ogg_int64_t>(i + 1) * kFrames + kPreSkip;
    file.add(speechPackets()[i % kPacketsPerMinute], position, i + 1 == packets);
  }
}

}  // namespace kwtsdk::bench
