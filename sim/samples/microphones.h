#pragma once

#include <filesystem>
#include <memory>

#include <kwtsdk/sim/microphone.h>

namespace kwtsdk::sim {

/// Hears the melody of the sample recordings, over and over.
std::shared_ptr<Microphone> melodyMicrophone();

/// Hears a WAV file, over and over: 16-bit PCM, mono or stereo (mixed down), at 8, 12, 16, 24 or 48 kHz.
/// Throws std::runtime_error whose text says what to do for any other file.
std::shared_ptr<Microphone> microphoneOf(const std::filesystem::path& wav);

}  // namespace kwtsdk::sim
