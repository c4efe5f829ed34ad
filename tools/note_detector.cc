#include "tools/note_detector.h"

#include <array>
#include <cmath>
#include <numbers>
#include <span>

namespace kwtsdk::tool {
namespace {

using Section = std::span<const std::int16_t>;

/// The share of the section's energy that is at the frequency, by Goertzel's algorithm.
double shareAt(double frequency, Section section, int sampleRate) {
  const double factor = 2 * std::cos(2 * std::numbers::pi * frequency / sampleRate);
  double last = 0, beforeLast = 0, energy = 0;
  for (const double sample : section) {
    const double next = sample + factor * last - beforeLast;
    beforeLast = last;
    last = next;
    energy += sample * sample;
  }
  const double power = last * last + beforeLast * beforeLast - factor * last * beforeLast;
  return energy > 0 ? 2 * power / (energy * static_cast<double>(section.size())) : 0;
}

std::string noteIn(Section section, int sampleRate) {
  constexpr std::array<const char*, 12> names{"C",  "C#", "D",  "D#", "E",  "F",
                                              "F#", "G",  "G#", "A",  "A#", "B"};
  constexpr double c4 = 261.63, standsOut = 0.5;
  for (std::size_t semitone = 0; semitone < 2 * names.size(); ++semitone) {
    const double frequency = c4 * std::exp2(static_cast<double>(semitone) / names.size());
    if (shareAt(frequency, section, sampleRate) > standsOut) {
      return names.at(semitone % names.size()) + std::to_string(4 + semitone / names.size());
    }
  }
  return "?";
}

}  // namespace

std::vector<std::string> notesIn(const sim::Samples& samples, int sampleRate) {
  const auto length = static_cast<std::size_t>(sampleRate / 2);
  std::vector<std::string> notes;
  for (std::size_t begin = 0; begin + length <= samples.size(); begin += length) {
    notes.push_back(noteIn(Section(samples).subspan(begin, length), sampleRate));
  }
  return notes;
}

}  // namespace kwtsdk::tool
