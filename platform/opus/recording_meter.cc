#include <algorithm>
#include <array>
#include <cmath>

#include <kwtsdk/opus/recording_meter.h>

#include "platform/opus/sound.h"

namespace kwtsdk::opus {

namespace {

using namespace internal;

struct OpenRecording {
  explicit OpenRecording(const std::string& path)
      : file(path), sound(openLiveSource(file, LivePacketReader::Kind::growing)) {}
  InputFile file;
  const std::unique_ptr<AudioSource> sound;
};

int loudest(std::span<const std::int16_t> samples) {
  const auto [least, most] = std::minmax_element(samples.begin(), samples.end());
  return std::max(-static_cast<int>(*least), static_cast<int>(*most));
}

double decibels(int amplitude) {
  constexpr double fullScale = 32768;
  return 20 * std::log10(std::max(amplitude, 1) / fullScale);
}

}  // namespace

struct RecordingMeter::State {
  explicit State(std::string p) : path(std::move(p)) {}

  void decodeWhatIsNew(Reading& reading) {
    if (!open) open = std::make_unique<OpenRecording>(path);
    std::array<std::int16_t, kLiveSampleRate> block{};
    int amplitude = -1;
    while (const std::size_t count = open->sound->read(block)) {
      frames += count;
      amplitude = std::max(amplitude, loudest(std::span(block).first(count)));
    }
    if (amplitude >= 0) reading.peak = decibels(amplitude);
  }

  const std::string path;
  std::unique_ptr<OpenRecording> open;
  std::uint64_t frames = 0;
};

RecordingMeter::RecordingMeter(const std::string& path) : state_(std::make_unique<State>(path)) {}
RecordingMeter::~RecordingMeter() = default;

RecordingMeter::Reading RecordingMeter::read() noexcept {
  Reading reading;
  try {
    state_->decodeWhatIsNew(reading);
  } catch (...) {
    reading.peak.reset();  // it cannot be read now, perhaps the next time
  }
  reading.recorded = std::chrono::milliseconds(state_->frames * 1000 / kLiveSampleRate);
  reading.bytes = state_->open ? state_->open->file.consumed() : 0;
  return reading;
}

}  // namespace kwtsdk::opus
