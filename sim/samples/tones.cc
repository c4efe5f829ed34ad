#include "sim/samples/tones.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>

namespace kwtsdk::sim {

namespace {

constexpr double kLoudness = 12000;

/// Samples of `seconds`; `wave` gives -1 to 1 at a time in seconds. Both ends fade, so that none clicks.
template <class Wave>
Samples sound(double seconds, Wave wave) {
  constexpr double fade = 0.02;
  Samples samples(static_cast<std::size_t>(seconds * kSampleRate));
  for (std::size_t i = 0; i < samples.size(); ++i) {
    const double time = static_cast<double>(i) / kSampleRate;
    const double envelope = std::min({1.0, time / fade, (seconds - time) / fade});
    samples[i] = static_cast<std::int16_t>(std::lround(kLoudness * envelope * wave(time)));
  }
  return samples;
}

double sine(double cycles) { return std::sin(2 * std::numbers::pi * cycles); }

}  // namespace

Samples melody() {
  constexpr std::array<double, 8> scale{261.63, 293.66, 329.63, 349.23, 392.00, 440.00, 493.88, 523.25};
  constexpr std::array<std::size_t, 24> notes{0, 1, 2, 3, 4, 4, 5, 5, 4, 7, 6, 5,
                                              4, 3, 3, 3, 2, 2, 1, 4, 2, 1, 0, 0};
  Samples samples;
  for (const std::size_t note : notes) {
    const Samples tone = sound(0.5, [&](double time) {
      return 0.7 * sine(scale[note] * time) + 0.3 * sine(2 * scale[note] * time);
    });
    samples.insert(samples.end(), tone.begin(), tone.end());
  }
  return samples;
}

Samples chord() {
  return sound(
      5, [](double time) { return (sine(220.00 * time) + sine(277.18 * time) + sine(329.63 * time)) / 3; });
}

Samples sweep() {
  constexpr double seconds = 20, lowest = 100, highest = 6000;
  const double growth = std::log(highest / lowest) / seconds;
  return sound(seconds, [growth](double time) { return sine(lowest * std::expm1(growth * time) / growth); });
}

}  // namespace kwtsdk::sim
