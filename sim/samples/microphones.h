#pragma once

#include <filesystem>
#include <memory>

#include <kwtsdk/sim/microphone.h>

#include "sim/samples/sounds.h"

namespace kwtsdk::sim {

/// Plays the samples in a loop, encoded like the recorder's own sound: 32 kbit/s, always 80 bytes a packet.
/// Each recording begins at the first sample and gets the same packets. Throws std::invalid_argument for no
/// samples or a rate that Opus does not take, std::bad_alloc.
std::shared_ptr<Microphone> opusMicrophone(Samples samples, int sampleRate);

/// Hears the melody of the sample recordings, over and over.
std::shared_ptr<Microphone> melodyMicrophone();

/// Hears a WAV file, over and over: 16-bit PCM, mono or stereo (mixed down), at 8, 12, 16, 24 or 48 kHz.
/// Throws std::runtime_error whose text says what to do for any other file.
std::shared_ptr<Microphone> microphoneOf(const std::filesystem::path& wav);

/// Of a recorder's folder: hears its device/microphone.wav, or else the melody. Throws as microphoneOf does.
std::shared_ptr<Microphone> microphoneIn(const std::filesystem::path& folder);

}  // namespace kwtsdk::sim
