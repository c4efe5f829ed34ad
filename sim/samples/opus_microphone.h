#pragma once

#include <array>
#include <memory>

#include <kwtsdk/sim/microphone.h>

#include "sim/samples/tones.h"

namespace kwtsdk::sim {

/// The sample rates that Opus takes.
inline constexpr std::array<int, 5> kOpusSampleRates{8000, 12000, 16000, 24000, 48000};

/// Plays the samples in a loop, encoded like the recorder's own sound: 32 kbit/s, always 80 bytes a packet.
/// Each recording begins at the first sample and gets the same packets. Throws std::invalid_argument for no
/// samples or a rate that Opus does not take, std::bad_alloc.
std::shared_ptr<Microphone> opusMicrophone(Samples samples, int sampleRate);

}  // namespace kwtsdk::sim
