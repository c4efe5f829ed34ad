#include "sim/samples/microphones.h"

#include <opus.h>

#include <algorithm>
#include <new>
#include <stdexcept>
#include <utility>

namespace kwtsdk::sim {

namespace {

constexpr int kBitRate = 32000, kPacketsPerSecond = 50;
constexpr std::size_t kOpusPacketSize = kBitRate / 8 / kPacketsPerSecond;

struct Destroy {
  void operator()(OpusEncoder* encoder) const { opus_encoder_destroy(encoder); }
};

class OpusMicrophone : public Microphone {
 public:
  OpusMicrophone(Samples samples, int sampleRate)
      : samples_(std::move(samples)),
        frame_(static_cast<std::size_t>(sampleRate / kPacketsPerSecond)),
        encoder_(opus_encoder_create(sampleRate, 1, OPUS_APPLICATION_AUDIO, nullptr)) {
    if (!encoder_) throw std::bad_alloc();
    opus_encoder_ctl(encoder_.get(), OPUS_SET_BITRATE(kBitRate));
    opus_encoder_ctl(encoder_.get(), OPUS_SET_VBR(0));
    // The recorder's microphone has nothing above 8 kHz.
    opus_encoder_ctl(encoder_.get(), OPUS_SET_MAX_BANDWIDTH(OPUS_BANDWIDTH_WIDEBAND));
  }

  void start() override {
    opus_encoder_ctl(encoder_.get(), OPUS_RESET_STATE);
    next_ = 0;
  }

  Bytes nextPacket() override {
    for (std::int16_t& sample : frame_) {
      sample = samples_[next_];
      next_ = next_ + 1 == samples_.size() ? 0 : next_ + 1;
    }
    Bytes packet(kOpusPacketSize);
    const auto size = opus_encode(encoder_.get(), frame_.data(), static_cast<int>(frame_.size()),
                                  packet.data(), static_cast<opus_int32>(packet.size()));
    packet.resize(static_cast<std::size_t>(std::max(size, 0)));
    return packet;
  }

 private:
  const Samples samples_;
  Samples frame_;
  std::size_t next_ = 0;
  const std::unique_ptr<OpusEncoder, Destroy> encoder_;
};

}  // namespace

std::shared_ptr<Microphone> opusMicrophone(Samples samples, int sampleRate) {
  if (samples.empty() || std::ranges::find(kOpusSampleRates, sampleRate) == kOpusSampleRates.end()) {
    throw std::invalid_argument("a microphone needs samples, at 8000, 12000, 16000, 24000 or 48000 Hz");
  }
  return std::make_shared<OpusMicrophone>(std::move(samples), sampleRate);
}

std::shared_ptr<Microphone> melodyMicrophone() { return opusMicrophone(melody(), kSampleRate); }

std::shared_ptr<Microphone> microphoneOf(const std::filesystem::path& wav) {
  WavSound sound = readWavFile(wav);
  return opusMicrophone(std::move(sound.samples), sound.sampleRate);
}

std::shared_ptr<Microphone> microphoneIn(const std::filesystem::path& folder) {
  const auto wav = folder / "device" / "microphone.wav";
  return std::filesystem::exists(wav) ? microphoneOf(wav) : melodyMicrophone();
}

}  // namespace kwtsdk::sim
