#pragma once

#include <filesystem>

#include "sim/samples/tones.h"

namespace kwtsdk::sim {

/// Writes the samples as Ogg Opus: 64 kbit/s, frames of 20 ms. The same samples and serial number give the
/// same bytes. Throws std::runtime_error.
void writeOpusFile(const std::filesystem::path& path, const Samples& samples, int serialNumber);

}  // namespace kwtsdk::sim
